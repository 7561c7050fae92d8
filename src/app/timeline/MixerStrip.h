#pragma once

#include "base/Uuid.h"
#include "timeline/TimelineTypes.h"

#include <QToolButton>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSlider;

namespace sonvale {

class ChannelSwitch;
class EditorModel;
class LevelMeterWidget;
class Timeline;

// One strip of the mixer: a lane (name, output, pan, on/off), a bus (name to rename, colour,
// on/off, effects, remove) or the master (effects); each with its fader and level meter.
// A bus or master strip can be minimised to a narrow column with its name and meter. Every
// control calls the Timeline's operations; a drag of the fader or pan is one undo step. The
// strip shows what sync() reads from the timeline. Main thread only.
class MixerStrip : public QWidget {
    Q_OBJECT
public:
    enum class Kind { lane, bus, master };
    static constexpr int stripWidth = 92;
    static constexpr int minimizedWidth = 30;
    static constexpr float faderFloorDB = -60;
    static constexpr float faderCeilingDB = 12;

    // `id` is the lane's or bus's id (none for the master).
    MixerStrip(EditorModel& model, Kind kind, std::optional<Uuid> id, bool minimized,
               QWidget* parent = nullptr);

    Kind kind() const { return stripKind; }
    const std::optional<Uuid>& id() const { return channelID; }
    bool isMinimized() const { return minimized; }
    // The bus's or master's channel; none for a lane.
    std::optional<MixerChannel> channel() const;
    // Shows the timeline's values; a control being dragged keeps its own.
    void sync(const Timeline& timeline);
    // Shows which effects the bus's or master's chain runs (nothing for a lane).
    void syncEffects(const Timeline& timeline);
    // The colour of the strip's band: the lane's colour, the bus's hue, grey for the master.
    QColor color() const { return band; }
    static QColor busColor(double hue);

    QSlider* fader() const { return gainFader; }
    QSlider* panSlider() const { return pan; }
    ChannelSwitch* onSwitch() const { return power; }
    QComboBox* outputBox() const { return output; }
    QLineEdit* nameEdit() const { return busName; }
    QPushButton* effectsButton() const { return effects; }
    QToolButton* removeButton() const { return remove; }
    QToolButton* colorButton() const { return colorMenuButton; }
    QToolButton* minimizeButton() const { return minimize; }
    LevelMeterWidget* meter() const { return levelMeter; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void buildFull();
    void buildMinimized();
    void writeGain(float gainDB);
    void syncOutputs(const Timeline& timeline, const std::optional<Uuid>& current);

    EditorModel& model;
    Timeline& timeline;
    Kind stripKind;
    std::optional<Uuid> channelID;
    bool minimized;
    QString name;
    QColor band;

    QLabel* nameLabel = nullptr;
    QLineEdit* busName = nullptr;
    QComboBox* output = nullptr;
    QSlider* pan = nullptr;
    QLabel* panLabel = nullptr;
    ChannelSwitch* power = nullptr;
    QPushButton* effects = nullptr;
    QToolButton* remove = nullptr;
    QToolButton* colorMenuButton = nullptr;
    QToolButton* minimize = nullptr;
    QSlider* gainFader = nullptr;
    QLabel* gainLabel = nullptr;
    LevelMeterWidget* levelMeter = nullptr;
};

} // namespace sonvale
