#pragma once

#include "app/effects/EffectEditors.h"
#include "effects/EffectChain.h"

#include <QWidget>
#include <sigc++/connection.h>
#include <vector>

class QComboBox;
class QLabel;
class QListWidget;
class QMenu;
class QProgressBar;
class QPushButton;
class QTimer;
class QToolButton;
class QVBoxLayout;

namespace sonvale {

class EditorModel;

// The effects of the waveform editor: an add menu by category, the chain in order (drag to
// reorder, bypass each or all, remove), the selected effect's knobs, presets and displays,
// and the Play, Apply to Selection and Close buttons. Everything goes through the model;
// knob moves write the session's value and bank slot, so they are heard while playing
// without rebuilding the chain. Main thread only.
class EffectsPanel : public QWidget {
    Q_OBJECT
public:
    explicit EffectsPanel(EditorModel& model, QWidget* parent = nullptr);
    ~EffectsPanel() override;

    QMenu* addMenu() const { return addEffectMenu; }
    QListWidget* chainList() const { return chain; }
    QComboBox* presetBox() const { return presets; }
    QToolButton* bypassAllButton() const { return bypassAll; }
    QPushButton* applyButton() const { return apply; }
    QPushButton* closeButton() const { return close; }
    QPushButton* playButton() const { return play; }
    // The selected effect's controls (knobs, switches, menus), in parameter order.
    const std::vector<ParameterControl*>& controls() const { return controlWidgets; }
    // The selected effect's displays; null where its editor has none of the kind.
    EqualizerGraph* equalizerGraph() const { return parts.equalizerGraph; }
    SpectrumDisplay* spectrumDisplay() const { return parts.spectrumDisplay; }
    ReductionMeter* reductionMeter() const { return parts.reductionMeter; }
    QWidget* compressorDisplay() const;

    // One display frame: readouts and the spectrum follow the audio being heard.
    void refreshDisplays();

Q_SIGNALS:
    // The chain was closed or applied: the window may hide the panel.
    void closed();

private:
    void chainOpenedOrClosed();
    void rebuildList();
    void syncListSelection();
    void rebuildEditor();
    void syncEditor();
    void syncPresetName();
    void syncButtons();
    void listRowsMoved();
    int64_t heardBehind() const;

    EditorModel& model;
    EffectChainPtr observed;
    EffectSessionPtr shown;
    std::vector<sigc::connection> modelConnections, chainConnections, sessionConnections;

    QMenu* addEffectMenu = nullptr;
    QToolButton* addButton = nullptr;
    QToolButton* bypassAll = nullptr;
    QToolButton* removeButton = nullptr;
    QListWidget* chain = nullptr;
    QWidget* editorArea = nullptr;
    // The shown effect's editor: everything it builds is inside, and goes with it.
    QWidget* editorPage = nullptr;
    QVBoxLayout* editorLayout = nullptr; // the page's
    QLabel* editorTitle = nullptr;
    QComboBox* presets = nullptr;
    QPushButton* play = nullptr;
    QPushButton* apply = nullptr;
    QPushButton* close = nullptr;
    QProgressBar* progress = nullptr;
    QTimer* displayTimer = nullptr;
    std::vector<ParameterControl*> controlWidgets;
    EffectEditorParts parts;
    bool updatingList = false;
};

} // namespace sonvale
