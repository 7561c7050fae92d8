#include "app/MainMenus.h"

#include "app/Features.h"
#include "app/QtText.h"

#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "persistence/SessionBundle.h"

#include <QAction>
#include <QActionGroup>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <filesystem>
#include <map>
#include <tuple>

namespace sonvale {

namespace {

// The Go menu's commands that move the canvas's cursor and view.
constexpr ActionID cursorKeys[] = {
    ActionID::cursorToStart, ActionID::cursorToEnd,    ActionID::selectToStart,
    ActionID::selectToEnd,   ActionID::cursorBack,     ActionID::cursorForward,
    ActionID::nudgeBack,     ActionID::nudgeForward,   ActionID::extendBack,
    ActionID::extendForward, ActionID::previousScreen, ActionID::nextScreen};

} // namespace

MainMenus::MainMenus(EditorModel& model, QMainWindow& window, QMenu& effectKinds)
    : QObject(&window)
    , model(model)
    , window(window) {
    build(effectKinds);
    modelConnections.add(model.selectionChanged.connect([this] { watchActiveTrack(); }));
    for (auto* signal :
         {&model.tracksChanged, &model.clipboardChanged, &model.exportProgressChanged,
          &model.effectChainChanged, &model.effectsApplyProgressChanged, &model.transportChanged,
          &model.timelineShowingChanged, &model.mixdownProgressChanged,
          &model.timeline()->contentChanged, &model.timeline()->selectionChanged,
          &model.timeline()->undoStack().changed, &model.clipClipboardChanged,
          &model.snapsClipsChanged, &model.recordingChanged, &model.trackViewChanged})
        modelConnections.add(signal->connect([this] { refresh(); }));
    modelConnections.add(model.documentChanged.connect([this] { refreshSessionActions(); }));
    modelConnections.add(model.preferences().changed.connect([this](Preferences::Setting setting) {
        if (setting == Preferences::Setting::recentSessions) rebuildRecentMenu();
        if (setting == Preferences::Setting::showsAIFeatures) refresh();
    }));
    watchActiveTrack();
    refreshSessionActions();
    rebuildRecentMenu();
}

QAction* MainMenus::action(ActionID id) const {
    auto found = actions.find(id);
    return found == actions.end() ? nullptr : found->second;
}

QAction* MainMenus::makeAction(ActionID id, const char* name, const QString& text,
                               const QKeySequence& shortcut, std::function<void()> run) {
    auto* a = new QAction(text, &window);
    a->setObjectName(name);
    if (!shortcut.isEmpty()) a->setShortcut(shortcut);
    a->setShortcutContext(Qt::WindowShortcut);
    if (run) connect(a, &QAction::triggered, this, [run = std::move(run)] { run(); });
    window.addAction(a);
    actions[id] = a;
    return a;
}

void MainMenus::build(QMenu& effectKinds) {
    using ID = ActionID;
    EditorModel& m = model;
    QMenuBar* bar = window.menuBar();

    QMenu* file = bar->addMenu("&File");
    file->addAction(makeAction(ID::newSession, "newSession", "New Session", QKeySequence::New));
    file->addAction(makeAction(ID::open, "open", "Open…", QKeySequence::Open));
    file->addAction(makeAction(ID::openSession, "openSession", "Open Session…", {}));
    recentMenu = file->addMenu("Open Recent");
    recentMenu->setObjectName("openRecentMenu");
    recentMenu->setToolTipsVisible(true);
    connect(recentMenu, &QMenu::aboutToShow, this, [this] { rebuildRecentMenu(); });
    file->addSeparator();
    file->addAction(makeAction(ID::saveSession, "saveSession", "Save Session", QKeySequence::Save));
    file->addAction(makeAction(ID::saveSessionAs, "saveSessionAs", "Save Session As…",
                               QKeySequence("Ctrl+Shift+S")));
    file->addAction(makeAction(ID::revertToSaved, "revertToSaved", "Revert to Saved", {}));
    file->addAction(makeAction(ID::snapshots, "snapshots", "Snapshots…", {}));
    file->addSeparator();
    file->addAction(makeAction(ID::exportAudio, "export", "Export…", QKeySequence("Ctrl+Shift+E")));
    file->addAction(makeAction(ID::exportRegions, "exportRegions", "Export Regions…", {}));
    file->addAction(makeAction(ID::newTrackFromSelection, "newTrackFromSelection",
                               "New Track from Selection", QKeySequence("Ctrl+Shift+N"),
                               [&m] { m.newTrackFromSelection(); }));
    file->addSeparator();
    file->addAction(makeAction(ID::removeTracks, "removeTracks", "Remove from List",
                               QKeySequence("Ctrl+Backspace"), [&m] {
                                   if (!m.selectedTrackIDs().empty())
                                       m.requestTrackRemoval(m.selectedTrackIDs());
                               }));
    // In the track list's context menu, for a track whose file has gone.
    makeAction(ID::locateMissing, "locateMissing", "Locate…", {});
    file->addSeparator();
    file->addAction(makeAction(ID::settings, "settings", "Settings…", QKeySequence("Ctrl+,")));
    file->addAction(makeAction(ID::quit, "quit", "Quit", QKeySequence::Quit));

    QMenu* edit = bar->addMenu("&Edit");
    edit->addAction(makeAction(ID::undo, "undo", "Undo", QKeySequence::Undo, [&m] { m.undo(); }));
    edit->addAction(
        makeAction(ID::redo, "redo", "Redo", QKeySequence("Ctrl+Shift+Z"), [&m] { m.redo(); }));
    edit->addSeparator();
    // While the timeline shows, these act on its selected clip.
    auto onClipOrAudio = [&m](void (EditorModel::*clip)(), void (EditorModel::*audio)()) {
        return [&m, clip, audio] { (m.*(m.isShowingTimeline() ? clip : audio))(); };
    };
    edit->addAction(makeAction(ID::cut, "cut", "Cut", QKeySequence::Cut,
                               onClipOrAudio(&EditorModel::cutClip, &EditorModel::cutSelection)));
    edit->addAction(makeAction(ID::copy, "copy", "Copy", QKeySequence::Copy,
                               onClipOrAudio(&EditorModel::copyClip, &EditorModel::copySelection)));
    edit->addAction(makeAction(ID::paste, "paste", "Paste", QKeySequence::Paste,
                               onClipOrAudio(&EditorModel::pasteClip, &EditorModel::paste)));
    edit->addAction(
        makeAction(ID::deleteSelection, "delete", "Delete", QKeySequence::Delete,
                   onClipOrAudio(&EditorModel::deleteClip, &EditorModel::deleteSelection)));
    edit->addSeparator();
    edit->addAction(makeAction(ID::trimToSelection, "trimToSelection", "Trim to Selection",
                               QKeySequence("Ctrl+T"), [&m] { m.trimToSelection(); }));
    edit->addAction(makeAction(ID::trimSilence, "trimSilence", "Trim Silence",
                               QKeySequence("Ctrl+Shift+T"), [&m] { m.trimSilence(); }));
    edit->addSeparator();
    edit->addAction(
        makeAction(ID::selectAll, "selectAll", "Select All", QKeySequence::SelectAll, [&m] {
            if (auto track = m.activeTrack(); track && track->audio())
                track->setSelection(FrameRange{0, track->frameCount()});
        }));

    QMenu* view = bar->addMenu("&View");
    // Waveform (Ctrl+1) or spectrogram (Ctrl+2).
    auto* trackViews = new QActionGroup(view);
    for (auto [id, name, title, key, shown] :
         {std::tuple{ID::showWaveform, "showWaveform", "Waveform", "Ctrl+1",
                     EditorModel::TrackView::waveform},
          std::tuple{ID::showSpectrogram, "showSpectrogram", "Spectrogram", "Ctrl+2",
                     EditorModel::TrackView::spectrogram}}) {
        QAction* a =
            makeAction(id, name, title, QKeySequence(key), [&m, shown] { m.setTrackView(shown); });
        a->setCheckable(true);
        a->setVisible(features::spectrogram);
        trackViews->addAction(a);
        view->addAction(a);
    }
    if (features::spectrogram) view->addSeparator();
    QAction* zoomIn = makeAction(ID::zoomIn, "zoomIn", "Zoom In", QKeySequence("Ctrl+="));
    // Ctrl+= and Ctrl++ both zoom in, whether or not the layout needs Shift for "+".
    zoomIn->setShortcuts({QKeySequence("Ctrl+="), QKeySequence("Ctrl++")});
    view->addAction(zoomIn);
    view->addAction(makeAction(ID::zoomOut, "zoomOut", "Zoom Out", QKeySequence("Ctrl+-")));
    view->addAction(makeAction(ID::zoomToSelection, "zoomToSelection", "Zoom to Selection",
                               QKeySequence("Ctrl+Shift+F")));
    view->addAction(makeAction(ID::zoomToFit, "zoomToFit", "Zoom to Fit", QKeySequence("Ctrl+0")));
    view->addSeparator();
    view->addAction(makeAction(ID::verticalZoomIn, "verticalZoomIn", "Vertical Zoom In",
                               QKeySequence("Ctrl+Alt+=")));
    view->addAction(makeAction(ID::verticalZoomOut, "verticalZoomOut", "Vertical Zoom Out",
                               QKeySequence("Ctrl+Alt+-")));
    view->addSeparator();
    // The panels beside the views; the window remembers them and steps them aside when narrow.
    for (auto [id, name, title, key] :
         {std::tuple{ID::showTrackList, "showTrackList", "Track List", "Ctrl+Alt+1"},
          std::tuple{ID::showInspector, "showInspector", "Inspector and Markers", "Ctrl+Alt+2"}}) {
        QAction* panel = makeAction(id, name, title, QKeySequence(key));
        panel->setCheckable(true);
        panel->setChecked(true);
        view->addAction(panel);
    }

    // The cursor keys are the waveform canvas's (the window's object "waveformCanvas"), so that
    // lists, sliders and knobs keep theirs; J, K and L work anywhere in the window.
    QMenu* go = bar->addMenu("&Go");
    go->setToolTipsVisible(true);
    QWidget* canvas = window.findChild<QWidget*>("waveformCanvas");
    using Move = EditorModel::CursorMove;
    for (auto [id, name, text, keys, move, extend] :
         {std::tuple{ID::cursorToStart, "cursorToStart", "Cursor to Start", "Home", Move::start,
                     false},
          std::tuple{ID::cursorToEnd, "cursorToEnd", "Cursor to End", "End", Move::end, false},
          std::tuple{ID::selectToStart, "selectToStart", "Select to Start", "Shift+Home",
                     Move::start, true},
          std::tuple{ID::selectToEnd, "selectToEnd", "Select to End", "Shift+End", Move::end, true},
          std::tuple{ID::cursorBack, "cursorBack", "Cursor Back", "Left", Move::back, false},
          std::tuple{ID::cursorForward, "cursorForward", "Cursor Forward", "Right", Move::forward,
                     false},
          std::tuple{ID::nudgeBack, "nudgeBack", "Nudge Cursor Back", "Ctrl+Left", Move::nudgeBack,
                     false},
          std::tuple{ID::nudgeForward, "nudgeForward", "Nudge Cursor Forward", "Ctrl+Right",
                     Move::nudgeForward, false},
          std::tuple{ID::extendBack, "extendBack", "Extend Selection Back", "Shift+Left",
                     Move::back, true},
          std::tuple{ID::extendForward, "extendForward", "Extend Selection Forward", "Shift+Right",
                     Move::forward, true}}) {
        QAction* a = makeAction(id, name, text, QKeySequence(keys),
                                [&m, move, extend] { m.moveCursor(move, extend); });
        if (id == ID::selectToStart || id == ID::cursorBack || id == ID::extendBack)
            go->addSeparator();
        go->addAction(a);
    }
    go->addSeparator();
    go->addAction(makeAction(ID::previousScreen, "previousScreen", "Previous Screen",
                             QKeySequence(Qt::Key_PageUp), [&m] { m.scrollByScreen(-1); }));
    go->addAction(makeAction(ID::nextScreen, "nextScreen", "Next Screen",
                             QKeySequence(Qt::Key_PageDown), [&m] { m.scrollByScreen(1); }));
    for (ActionID id : cursorKeys) {
        action(id)->setShortcutContext(Qt::WidgetShortcut);
        if (canvas) canvas->addAction(action(id));
    }
    action(ID::cursorBack)->setToolTip("Move the cursor back a tenth of the view");
    action(ID::cursorForward)->setToolTip("Move the cursor forward a tenth of the view");
    action(ID::nudgeBack)->setToolTip("Move the cursor back one pixel");
    action(ID::nudgeForward)->setToolTip("Move the cursor forward one pixel");
    go->addSeparator();
    for (auto [id, name, text, key, direction, tip] :
         {std::tuple{ID::shuttleBack, "shuttleBack", "Shuttle Back", "J", -1,
                     "Slower while playing; one second back while stopped"},
          std::tuple{ID::shuttleStop, "shuttleStop", "Shuttle Stop", "K", 0, "Stop"},
          std::tuple{ID::shuttleForward, "shuttleForward", "Shuttle Forward", "L", 1,
                     "Play; press again to play faster (up to 2\u00d7)"}}) {
        go->addAction(makeAction(id, name, text, QKeySequence(key),
                                 [&m, direction] { m.shuttle(direction); }));
        action(id)->setToolTip(QString::fromUtf8(tip));
    }

    QMenu* markerMenu = bar->addMenu("&Markers");
    markerMenu->addAction(makeAction(ID::addMarker, "addMarker", "Add Marker at Playhead",
                                     QKeySequence("M"), [&m] { m.addMarker(); }));
    markerMenu->addAction(makeAction(ID::previousMarker, "previousMarker", "Previous Marker",
                                     QKeySequence("Alt+Left"), [&m] { m.jumpToMarker(-1); }));
    markerMenu->addAction(makeAction(ID::nextMarker, "nextMarker", "Next Marker",
                                     QKeySequence("Alt+Right"), [&m] { m.jumpToMarker(1); }));
    markerMenu->addSeparator();
    markerMenu->addAction(makeAction(ID::removeAllMarkers, "removeAllMarkers", "Remove All Markers",
                                     {}, [&m] { m.removeAllMarkers(); }));

    if (features::transcription) {
        QMenu* transcriptMenu = bar->addMenu("T&ranscript");
        transcriptMenu->addAction(makeAction(ID::transcribe, "transcribe", "Transcribe", {},
                                             [&m] { m.transcribe(m.activeTrack()); }));
        action(ID::transcribe)->setToolTip(EditorModel::transcribeToolTip);
        transcriptMenu->addAction(
            makeAction(ID::copyTranscript, "copyTranscript", "Copy Transcript", {}, [&m] {
                if (auto track = m.activeTrack()) m.copyTranscript(*track);
            }));
        transcriptMenu->addSeparator();
        transcriptMenu->addAction(makeAction(ID::suggestTitle, "suggestTitle",
                                             "Suggest Title && Summary", {},
                                             [&m] { m.summarizeTranscript(m.activeTrack()); }));
        transcriptMenu->addAction(makeAction(ID::regionsFromTopics, "regionsFromTopics",
                                             "Create Regions from Topics", {},
                                             [&m] { m.createRegionsFromTopics(m.activeTrack()); }));
        for (ID id : {ID::suggestTitle, ID::regionsFromTopics})
            action(id)->setToolTip(EditorModel::languageModelNote);
    }

    QMenu* playback = bar->addMenu("&Playback");
    playback->addAction(makeAction(ID::play, "play", "Play", QKeySequence(Qt::Key_Space),
                                   [&m] { m.togglePlayback(); }));
    // Pause, Stop and the ends, which the transport bar's buttons share.
    for (auto [id, name, text, keys, run] :
         {std::tuple{ID::pause, "pause", "Pause", EditorModel::pauseShortcut, &EditorModel::pause},
          std::tuple{ID::stopAndReturn, "stopAndReturn", "Stop and Go Back",
                     EditorModel::stopShortcut, &EditorModel::stopAndReturn},
          std::tuple{ID::goToStart, "goToStart", "Go to Start", EditorModel::goToStartShortcut,
                     &EditorModel::goToStart},
          std::tuple{ID::goToEnd, "goToEnd", "Go to End", EditorModel::goToEndShortcut,
                     &EditorModel::goToEnd}})
        playback->addAction(
            makeAction(id, name, text, QKeySequence(keys), [&m, run = run] { (m.*run)(); }));
    QAction* loop = makeAction(ID::loop, "loop", "Loop Playback", QKeySequence("Ctrl+L"),
                               [&m] { m.loopPlayback(); });
    loop->setCheckable(true);
    playback->addAction(loop);
    QAction* record = makeAction(ID::record, "record", "Record", QKeySequence("Ctrl+R"),
                                 [&m] { m.toggleRecording(); });
    record->setVisible(features::recording);
    playback->addAction(record);
    playback->addSeparator();
    playback->addAction(makeAction(ID::slower, "slower", "Slower", QKeySequence("Ctrl+["),
                                   [&m] { m.changePlaybackRate(-1); }));
    playback->addAction(makeAction(ID::faster, "faster", "Faster", QKeySequence("Ctrl+]"),
                                   [&m] { m.changePlaybackRate(1); }));
    playback->addSeparator();
    playback->addAction(makeAction(ID::normalizePeak, "normalizePeak", "Peak to 0 dBFS",
                                   QKeySequence("Ctrl+Alt+N"), [&m] { m.normalizePeak(); }));
    playback->addSeparator();
    playback->addAction(makeAction(ID::previousTrack, "previousTrack", "Previous Track",
                                   QKeySequence("Alt+Up"), [&m] { m.selectAdjacentTrack(-1); }));
    playback->addAction(makeAction(ID::nextTrack, "nextTrack", "Next Track",
                                   QKeySequence("Alt+Down"), [&m] { m.selectAdjacentTrack(1); }));

    QMenu* multitrack = bar->addMenu("&Multitrack");
    QAction* showMultitrack =
        makeAction(ID::showMultitrack, "showMultitrack", "Show Multitrack", QKeySequence("Ctrl+M"),
                   [&m] { m.setShowingTimeline(!m.isShowingTimeline()); });
    showMultitrack->setCheckable(true);
    multitrack->addAction(showMultitrack);
    multitrack->addAction(makeAction(ID::addToTimeline, "addToTimeline",
                                     EditorModel::addToTimelineTitle, QKeySequence("Ctrl+Shift+A"),
                                     [&m] { m.addToTimeline(); }));
    multitrack->addAction(
        makeAction(ID::newBus, "newBus", "New Bus", {}, [&m] { m.timeline()->addBus(); }));
    multitrack->addSeparator();
    multitrack->addAction(makeAction(ID::splitClip, "splitClip", "Split Clip at Cursor",
                                     QKeySequence("Ctrl+K"), [&m] { m.splitClipsAtCursor(); }));
    multitrack->addAction(makeAction(ID::duplicateClip, "duplicateClip", "Duplicate Clip",
                                     QKeySequence("Ctrl+D"), [&m] { m.duplicateClip(); }));
    QAction* snap = makeAction(ID::snapClips, "snapClips", "Snap Clips", {},
                               [&m] { m.setSnapsClips(!m.snapsClips()); });
    snap->setCheckable(true);
    snap->setToolTip("Snap dragged clips to the cursor, markers and clip edges (hold Shift to "
                     "drag freely)");
    multitrack->addAction(snap);
    multitrack->addSeparator();
    multitrack->addAction(
        makeAction(ID::addLane, "addLane", "Add Lane", QKeySequence("Ctrl+Shift+L"),
                   [&m] { m.timeline()->addLane(m.timeline()->nextLaneName()); }));
    multitrack->addAction(makeAction(ID::removeLane, "removeLane", "Remove Lane", {}));
    multitrack->addSeparator();
    multitrack->addAction(
        makeAction(ID::mixdown, "mixdown", EditorModel::mixdownTitle, {}, [&m] { m.mixdown(); }));
    multitrack->setToolTipsVisible(true);

    QMenu* effectsMenu = bar->addMenu("Effec&ts");
    addEffectMenu = effectsMenu->addMenu("Add Effect");
    addEffectMenu->setObjectName("addEffectMenu");
    for (QAction* kindAction : effectKinds.actions())
        addEffectMenu->addAction(kindAction);
    effectsMenu->addAction(
        makeAction(ID::showEffects, "showEffects", "Show Effects", QKeySequence("Ctrl+E")));
    effectsMenu->addSeparator();
    effectsMenu->addAction(makeAction(ID::applyEffects, "applyEffects", "Apply to Selection", {},
                                      [&m] { m.applyEffects(); }));
    effectsMenu->addAction(makeAction(ID::closeEffects, "closeEffects", "Close Effects", {},
                                      [&m] { m.closeEffects(); }));

    QMenu* help = bar->addMenu("&Help");
    help->addAction(makeAction(ID::keyboardShortcuts, "keyboardShortcuts", "Keyboard Shortcuts",
                               QKeySequence("Ctrl+/")));
    help->addAction(makeAction(ID::about, "about", "About Sonvale", {}));
}

void MainMenus::watchActiveTrack() {
    trackConnections.clear();
    if (auto track = model.activeTrack())
        for (auto* signal :
             {&track->stateChanged, &track->audioChanged, &track->selectionChanged,
              &track->markersChanged, &track->revisionsChanged, &track->undoStack().changed,
              &track->cachesChanged, &track->recordingChanged, &track->transcriptChanged})
            trackConnections.add(signal->connect([this] { refresh(); }));
    refresh();
}

void MainMenus::refresh() {
    using ID = ActionID;
    const EditorModel& m = model;
    auto set = [this](ActionID id, bool enabled) { action(id)->setEnabled(enabled); };
    const auto track = m.activeTrack();
    const bool audio = track && track->audio();
    set(ID::exportAudio, m.canExport());
    set(ID::exportRegions, m.canExportRegions());
    set(ID::newTrackFromSelection, m.canEdit());
    set(ID::removeTracks, !m.selectedTrackIDs().empty());
    set(ID::undo, m.canUndo());
    set(ID::redo, m.canRedo());
    action(ID::undo)->setText(qs(m.undoMenuTitle()));
    action(ID::redo)->setText(qs(m.redoMenuTitle()));
    if (m.isShowingTimeline()) {
        for (auto [id, title, enabled] :
             {std::tuple{ID::cut, "Cut Clip", m.hasSelectedClip()},
              std::tuple{ID::copy, "Copy Clip", m.hasSelectedClip()},
              std::tuple{ID::paste, "Paste Clip", m.canPasteClip()},
              std::tuple{ID::deleteSelection, "Delete Clip", m.hasSelectedClip()}}) {
            set(id, enabled);
            action(id)->setText(title);
        }
    } else {
        for (auto [id, title, enabled] :
             {std::tuple{ID::cut, "Cut", m.canEdit()}, std::tuple{ID::copy, "Copy", m.canCopy()},
              std::tuple{ID::paste, "Paste", m.canPaste()},
              std::tuple{ID::deleteSelection, "Delete", m.canEdit()}}) {
            set(id, enabled);
            action(id)->setText(title);
        }
    }
    set(ID::trimToSelection, m.canEdit());
    set(ID::trimSilence, audio && !track->isRecording());
    set(ID::selectAll, audio);
    for (ID id : {ID::verticalZoomIn, ID::verticalZoomOut})
        set(id,
            audio && !m.isShowingTimeline() && m.trackView() == EditorModel::TrackView::waveform);
    for (ID id : {ID::zoomIn, ID::zoomOut, ID::zoomToFit})
        set(id, m.isShowingTimeline() || audio);
    set(ID::zoomToSelection, track && track->selection().has_value());
    const bool spectrogram = m.trackView() == EditorModel::TrackView::spectrogram;
    action(ID::showWaveform)->setChecked(!spectrogram);
    action(ID::showSpectrogram)->setChecked(spectrogram);
    for (ID id : {ID::showWaveform, ID::showSpectrogram})
        set(id, !m.isShowingTimeline());
    for (ID id : cursorKeys)
        set(id, audio && !m.isShowingTimeline());
    set(ID::shuttleBack, m.canPlay() || m.isPlaying());
    set(ID::shuttleForward, m.canPlay() || m.isPlaying());
    set(ID::shuttleStop, m.isPlaying());
    set(ID::addMarker, m.canAddMarker());
    action(ID::addMarker)->setText(qs(m.addMarkerTitle()));
    set(ID::previousMarker, m.hasMarkers());
    set(ID::nextMarker, m.hasMarkers());
    set(ID::removeAllMarkers, m.hasMarkers());
    if (features::transcription) {
        set(ID::transcribe,
            track && model.canTranscribe(*track) && model.transcriber().isAvailable());
        action(ID::transcribe)
            ->setText(qs(track ? EditorModel::transcribeTitle(*track) : "Transcribe"));
        set(ID::copyTranscript,
            track && track->transcript() && !track->transcript()->segments.empty());
        const bool ai = m.preferences().showsAIFeatures();
        action(ID::suggestTitle)->setVisible(ai);
        action(ID::regionsFromTopics)->setVisible(ai);
        set(ID::suggestTitle, track && m.canSummarize(*track));
        set(ID::regionsFromTopics, track && m.canCreateRegionsFromTopics(*track));
    }
    set(ID::play, m.canPlay() || m.isPlaying());
    action(ID::play)->setText(m.isPlaying() ? "Stop" : "Play");
    for (ID id : {ID::pause, ID::stopAndReturn})
        set(id, m.isPlaying());
    for (ID id : {ID::goToStart, ID::goToEnd})
        set(id, m.canPlay() || m.isPlaying());
    set(ID::loop, m.canPlay() || m.isPlaying());
    action(ID::loop)->setChecked(m.isLooping());
    action(ID::record)->setText(m.isRecording() ? "Stop Recording" : "Record");
    action(ID::record)
        ->setToolTip(m.isRecording() ? EditorModel::stopRecordingToolTip
                                     : EditorModel::recordToolTip);
    set(ID::slower, m.playbackRate() > PlaybackEngine::playbackRates.front());
    set(ID::faster, m.playbackRate() < PlaybackEngine::playbackRates.back());
    set(ID::normalizePeak, m.canNormalize());
    set(ID::showEffects, m.effectChain() != nullptr);
    set(ID::applyEffects,
        m.effectChain() != nullptr && !m.mixerEffectsChannel() && !m.effectsApplyProgress());
    set(ID::closeEffects, m.effectChain() != nullptr && !m.effectsApplyProgress());
    addEffectMenu->setEnabled(m.canAddEffect());
    action(ID::showMultitrack)->setChecked(m.isShowingTimeline());
    set(ID::addToTimeline, m.canAddToTimeline());
    set(ID::splitClip, m.canSplitClips());
    set(ID::duplicateClip, m.hasSelectedClip());
    action(ID::snapClips)->setChecked(m.snapsClips());
    set(ID::removeLane, m.isShowingTimeline() && !m.timeline()->lanes().empty());
    set(ID::newBus, m.isShowingTimeline());
    set(ID::mixdown, m.canMixdown());
    action(ID::mixdown)->setToolTip(qs(m.mixdownHelp()));
    set(ID::previousTrack, !m.tracks().empty());
    set(ID::nextTrack, !m.tracks().empty());
    const bool missing = track && EditorModel::isMissing(*track);
    set(ID::locateMissing, missing);
    action(ID::locateMissing)->setVisible(missing);
}

void MainMenus::refreshSessionActions() {
    using ID = ActionID;
    const bool saving = model.isSavingDocument();
    const bool hasDocument = model.document().has_value();
    for (ID id : {ID::newSession, ID::openSession, ID::saveSession, ID::saveSessionAs})
        action(id)->setEnabled(!saving);
    recentMenu->menuAction()->setEnabled(!saving);
    action(ID::revertToSaved)->setEnabled(hasDocument && !saving && model.isDocumentEdited());
    action(ID::snapshots)->setEnabled(hasDocument && !saving);
}

// The recent bundles; those no longer there are shown but can't be chosen.
void MainMenus::rebuildRecentMenu() {
    recentMenu->clear();
    const std::vector<std::string>& recents = model.preferences().recentSessions();
    std::map<std::string, int> nameCount;
    for (const std::string& path : recents)
        ++nameCount[SessionBundle::displayName(std::filesystem::path(path))];
    for (const std::string& path : recents) {
        const std::filesystem::path url(path);
        const std::string name = SessionBundle::displayName(url);
        QString text = qs(name);
        if (nameCount[name] > 1)
            text += QString::fromUtf8(" \u2014 ") + qs(url.parent_path().filename().string());
        QAction* entry = recentMenu->addAction(
            text, this, [this, path = qs(path)] { Q_EMIT recentSessionChosen(path); });
        entry->setToolTip(qs(path));
        std::error_code error;
        entry->setEnabled(std::filesystem::is_directory(url, error));
    }
    if (!recents.empty()) recentMenu->addSeparator();
    QAction* clear = recentMenu->addAction("Clear Menu", this,
                                           [this] { model.preferences().clearRecentSessions(); });
    clear->setObjectName("clearRecentSessions");
    clear->setEnabled(!recents.empty());
}

} // namespace sonvale
