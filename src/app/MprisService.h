#pragma once

#include <QObject>

namespace sonvale {

class EditorModel;

// Media keys and now-playing: publishes the editor's transport on the session bus as an
// MPRIS media player (org.mpris.MediaPlayer2.sonvale). Without a session bus it does nothing.
class MprisService : public QObject {
    Q_OBJECT
public:
    explicit MprisService(EditorModel& model, QObject* parent = nullptr);
    ~MprisService() override;
    // Whether the service name was taken on the bus.
    bool isRegistered() const { return registered; }

private:
    EditorModel& model;
    bool registered = false;
};

} // namespace sonvale
