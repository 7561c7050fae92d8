#pragma once

#include "app/SignalConnections.h"
#include "app/timeline/MixerStrip.h"
#include "engine/LevelMeters.h"

#include <QWidget>
#include <optional>
#include <set>
#include <vector>

class QHBoxLayout;
class QPushButton;
class QScrollArea;
class QTimer;

namespace sonvale {

class EditorModel;
class Timeline;

// The mixer below the timeline: a strip per lane and per bus, scrolling sideways when they
// don't fit, a "New Bus" button after them, and the master's strip at the right edge. It
// follows the timeline: strips are made anew when lanes, buses or minimised strips come, go
// or move, and otherwise show the new values in place (so a fader being dragged stays).
//
// The meters read the timeline's level meters about 30 times a second, only while the mixer
// is visible and the timeline plays or a meter is still falling. Main thread only.
class MixerView : public QWidget {
    Q_OBJECT
public:
    static constexpr int meterIntervalMs = 33; // about 30 frames a second

    explicit MixerView(EditorModel& model, QWidget* parent = nullptr);

    // The strips in display order: lanes, buses, then the master.
    const std::vector<MixerStrip*>& strips() const { return stripList; }
    MixerStrip* strip(MixerStrip::Kind kind, const std::optional<Uuid>& id = {}) const;
    QPushButton* newBusButton() const { return newBus; }
    QScrollArea* scrollArea() const { return scroller; }
    bool isMetering() const;
    // Tall enough for the faders to have some travel.
    QSize sizeHint() const override { return {QWidget::sizeHint().width(), 320}; }

    // One meter frame at `now` (seconds, steady clock): each strip takes the peaks the mix
    // metered up to the frame being heard, and the meters that move are repainted. Returns
    // whether any meter still shows something.
    bool refreshMeters(double now);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    struct Layout {
        std::vector<Uuid> lanes;
        std::vector<Uuid> buses;
        std::set<MixerChannel> minimized;
        friend bool operator==(const Layout&, const Layout&) = default;
    };
    Layout currentLayout() const;
    void rebuild();
    void sync();
    void startMetering();
    // The peaks metered before now, left unread while nobody looked.
    void skipUnheardPeaks();
    int64_t heardFrame() const;

    EditorModel& model;
    Timeline& timeline;
    SignalConnections connections;
    QScrollArea* scroller = nullptr;
    QWidget* row = nullptr;
    QHBoxLayout* rowLayout = nullptr;
    QHBoxLayout* masterColumn = nullptr;
    QPushButton* newBus = nullptr;
    QTimer* meterTimer = nullptr;
    std::vector<MixerStrip*> stripList;
    std::vector<LevelMeters::Slot> slots; // where the mix meters each strip
    std::optional<Layout> shown;
};

} // namespace sonvale
