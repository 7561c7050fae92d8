#pragma once

namespace sonvale {

// One value per command of the window's menus. The program finds its actions by these; each
// QAction also carries an object name ("cut", "export" ...) for accessibility tools and tests.
enum class ActionID {
    // File
    newSession,
    open,
    openSession,
    saveSession,
    saveSessionAs,
    revertToSaved,
    snapshots,
    exportAudio,
    exportRegions,
    newTrackFromSelection,
    removeTracks,
    locateMissing, // in the track list's context menu only
    settings,
    quit,
    // Edit
    undo,
    redo,
    cut,
    copy,
    paste,
    deleteSelection,
    trimToSelection,
    trimSilence,
    selectAll,
    // View
    showWaveform,
    showSpectrogram,
    zoomIn,
    zoomOut,
    zoomToSelection,
    zoomToFit,
    verticalZoomIn,
    verticalZoomOut,
    showTrackList,
    showInspector,
    // Go (the cursor keys act while the waveform canvas has the focus)
    cursorToStart,
    cursorToEnd,
    selectToStart,
    selectToEnd,
    cursorBack,
    cursorForward,
    nudgeBack,
    nudgeForward,
    extendBack,
    extendForward,
    previousScreen,
    nextScreen,
    shuttleBack,
    shuttleStop,
    shuttleForward,
    // Markers
    addMarker,
    previousMarker,
    nextMarker,
    removeAllMarkers,
    // Transcript
    transcribe,
    copyTranscript,
    suggestTitle,
    regionsFromTopics,
    // Playback
    play,
    pause,
    stopAndReturn,
    goToStart,
    goToEnd,
    loop,
    record,
    slower,
    faster,
    normalizePeak,
    previousTrack,
    nextTrack,
    // Multitrack
    showMultitrack,
    addToTimeline,
    splitClip,
    duplicateClip,
    snapClips,
    addLane,
    removeLane,
    newBus,
    mixdown,
    // Effects
    showEffects,
    applyEffects,
    closeEffects,
    // Help
    keyboardShortcuts,
    about,
};

} // namespace sonvale
