#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <sigc++/connection.h>
#include <vector>

namespace sonvale {

class EditorModel;

// Media keys and now-playing: publishes the editor's transport on the session bus as an
// MPRIS 2 media player (org.mpris.MediaPlayer2.sonvale, object /org/mpris/MediaPlayer2).
// Play, pause and stop act on the active track, Next and Previous select the adjacent track;
// the metadata names the active track. Changes of the transport or the active track are
// announced with PropertiesChanged, moves of the playhead made through the bus with Seeked.
// Without a session bus it does nothing. Main thread only.
class MprisService : public QObject {
    Q_OBJECT
public:
    static constexpr const char* serviceName = "org.mpris.MediaPlayer2.sonvale";
    static constexpr const char* objectPath = "/org/mpris/MediaPlayer2";
    static constexpr const char* rootInterface = "org.mpris.MediaPlayer2";
    static constexpr const char* playerInterface = "org.mpris.MediaPlayer2.Player";

    // On the session bus.
    explicit MprisService(EditorModel& model, QObject* parent = nullptr);
    // On the given connection (tests use a private one).
    MprisService(EditorModel& model, QDBusConnection connection, QObject* parent = nullptr);
    ~MprisService() override;
    // Whether the service name was taken on the bus.
    bool isRegistered() const { return registered; }
    // The name taken: serviceName, or with ".instance<pid>" when another Sonvale has it.
    const QString& registeredName() const { return busName; }

    // ---- what the bus sees (also used by the adaptors)
    EditorModel& editor() const { return model; }
    QString playbackStatus() const; // "Playing", "Paused" or "Stopped"
    QVariantMap metadata() const;
    qlonglong position() const; // microseconds
    QString trackObjectPath() const;
    bool canPlay() const;
    bool canSeek() const;
    bool canGoNext() const;
    bool canGoPrevious() const;

    // ---- what the bus asks for
    void play();
    void pause();
    void playPause();
    void stopPlayback();
    void next();
    void previous();
    void seekBy(qlonglong offsetMicroseconds);
    void setPosition(const QString& trackID, qlonglong positionMicroseconds);
    void setLoopStatus(const QString& status);
    void setRate(double rate);

Q_SIGNALS:
    // The bus asked to bring the window to the front.
    void raiseRequested();

private:
    // Compares the player's properties with those last announced and announces the changes.
    void announceChanges();
    void announceSeek();
    void watchActiveTrack();
    QVariantMap playerProperties() const;

    EditorModel& model;
    QDBusConnection connection;
    bool registered = false;
    QString busName;
    bool paused = false; // stopped by Pause, so the next Play continues
    QVariantMap announced;
    std::vector<sigc::connection> modelConnections;
    std::vector<sigc::connection> trackConnections;
};

} // namespace sonvale
