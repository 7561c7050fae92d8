#include "app/MprisService.h"

#include "audio/AudioLoader.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"

#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QStringList>
#include <QUrl>
#include <algorithm>
#include <cmath>

namespace sonvale {

namespace {

constexpr const char* noTrackPath = "/org/mpris/MediaPlayer2/TrackList/NoTrack";
constexpr double microseconds = 1e6;

qlonglong framesToMicroseconds(int64_t frames, double sampleRate) {
    return sampleRate > 0 ? qlonglong(std::llround(double(frames) / sampleRate * microseconds)) : 0;
}

int64_t microsecondsToFrames(qlonglong time, double sampleRate) {
    return int64_t(std::llround(double(time) / microseconds * sampleRate));
}

// org.mpris.MediaPlayer2: who the player is.
class RootAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ canQuit)
    Q_PROPERTY(bool CanRaise READ canRaise)
    Q_PROPERTY(bool HasTrackList READ hasTrackList)
    Q_PROPERTY(QString Identity READ identity)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry)
    Q_PROPERTY(QStringList SupportedUriSchemes READ supportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ supportedMimeTypes)
public:
    explicit RootAdaptor(MprisService* service)
        : QDBusAbstractAdaptor(service)
        , service(service) {}

    bool canQuit() const { return false; }
    bool canRaise() const { return true; }
    bool hasTrackList() const { return false; }
    QString identity() const { return "Sonvale"; }
    QString desktopEntry() const { return "sonvale"; }
    QStringList supportedUriSchemes() const { return {"file"}; }
    QStringList supportedMimeTypes() const {
        return {"audio/wav", "audio/x-wav", "audio/flac",   "audio/mpeg",  "audio/mp4",
                "audio/aac", "audio/ogg",   "audio/x-aiff", "audio/x-m4a", "audio/opus"};
    }

public Q_SLOTS:
    void Raise() { Q_EMIT service->raiseRequested(); }
    void Quit() {} // CanQuit is false: quitting asks about unsaved work in the window

private:
    MprisService* service;
};

// org.mpris.MediaPlayer2.Player: the transport of the active track.
class PlayerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(QString LoopStatus READ loopStatus WRITE setLoopStatus)
    Q_PROPERTY(double Rate READ rate WRITE setRate)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(double Volume READ volume WRITE setVolume)
    Q_PROPERTY(qlonglong Position READ position)
    Q_PROPERTY(double MinimumRate READ minimumRate)
    Q_PROPERTY(double MaximumRate READ maximumRate)
    Q_PROPERTY(bool CanGoNext READ canGoNext)
    Q_PROPERTY(bool CanGoPrevious READ canGoPrevious)
    Q_PROPERTY(bool CanPlay READ canPlay)
    Q_PROPERTY(bool CanPause READ canPause)
    Q_PROPERTY(bool CanSeek READ canSeek)
    Q_PROPERTY(bool CanControl READ canControl)
public:
    explicit PlayerAdaptor(MprisService* service)
        : QDBusAbstractAdaptor(service)
        , service(service) {}

    QString playbackStatus() const { return service->playbackStatus(); }
    QString loopStatus() const { return service->editor().isLooping() ? "Track" : "None"; }
    void setLoopStatus(const QString& status) { service->setLoopStatus(status); }
    double rate() const { return service->editor().playbackRate(); }
    void setRate(double value) { service->setRate(value); }
    QVariantMap metadata() const { return service->metadata(); }
    // The track's gain is an edit with undo, not a player volume; the bus sees full volume.
    double volume() const { return 1.0; }
    void setVolume(double) {}
    qlonglong position() const { return service->position(); }
    double minimumRate() const { return PlaybackEngine::playbackRates.front(); }
    double maximumRate() const { return PlaybackEngine::playbackRates.back(); }
    bool canGoNext() const { return service->canGoNext(); }
    bool canGoPrevious() const { return service->canGoPrevious(); }
    bool canPlay() const { return service->canPlay(); }
    bool canPause() const { return service->canPlay(); }
    bool canSeek() const { return service->canSeek(); }
    bool canControl() const { return true; }

public Q_SLOTS:
    void Next() { service->next(); }
    void Previous() { service->previous(); }
    void Pause() { service->pause(); }
    void PlayPause() { service->playPause(); }
    void Stop() { service->stopPlayback(); }
    void Play() { service->play(); }
    void Seek(qlonglong Offset) { service->seekBy(Offset); }
    void SetPosition(const QDBusObjectPath& TrackId, qlonglong Position) {
        service->setPosition(TrackId.path(), Position);
    }
    void OpenUri(const QString& Uri) {
        const QUrl url(Uri);
        if (url.isLocalFile()) service->editor().open({url.toLocalFile().toStdString()});
    }

Q_SIGNALS:
    void Seeked(qlonglong Position);

private:
    MprisService* service;
};

} // namespace

MprisService::MprisService(EditorModel& model, QObject* parent)
    : MprisService(model, QDBusConnection::sessionBus(), parent) {}

MprisService::MprisService(EditorModel& model, QDBusConnection bus, QObject* parent)
    : QObject(parent)
    , model(model)
    , connection(std::move(bus)) {
    if (!connection.isConnected()) return;
    new RootAdaptor(this);
    new PlayerAdaptor(this);
    if (!connection.registerObject(objectPath, this, QDBusConnection::ExportAdaptors)) return;
    // A second Sonvale takes a name of its own, as media players do.
    busName = serviceName;
    if (!connection.registerService(busName)) {
        busName = QString("%1.instance%2").arg(serviceName).arg(QCoreApplication::applicationPid());
        if (!connection.registerService(busName)) {
            connection.unregisterObject(objectPath);
            busName.clear();
            return;
        }
    }
    registered = true;

    modelConnections.push_back(model.transportChanged.connect([this] { announceChanges(); }));
    modelConnections.push_back(model.selectionChanged.connect([this] {
        paused = false;
        watchActiveTrack();
        announceChanges();
    }));
    modelConnections.push_back(model.tracksChanged.connect([this] {
        watchActiveTrack();
        announceChanges();
    }));
    watchActiveTrack();
    announced = playerProperties();
}

MprisService::~MprisService() {
    for (auto& c : modelConnections)
        c.disconnect();
    for (auto& c : trackConnections)
        c.disconnect();
    if (registered) {
        connection.unregisterService(busName);
        connection.unregisterObject(objectPath);
    }
}

void MprisService::watchActiveTrack() {
    for (auto& c : trackConnections)
        c.disconnect();
    trackConnections.clear();
    const auto track = model.activeTrack();
    if (!track) return;
    for (auto* signal :
         {&track->urlChanged, &track->stateChanged, &track->audioChanged, &track->recordingChanged})
        trackConnections.push_back(signal->connect([this] { announceChanges(); }));
}

// ---- what the bus sees

QString MprisService::playbackStatus() const {
    if (model.isPlaying()) return "Playing";
    return paused ? "Paused" : "Stopped";
}

QString MprisService::trackObjectPath() const {
    const auto track = model.activeTrack();
    if (!track) return noTrackPath;
    // Object path elements allow letters, digits and underscores only.
    return QString("/org/mpris/MediaPlayer2/sonvale/track/%1")
        .arg(QString::fromStdString(track->id().text()).remove('-'));
}

QVariantMap MprisService::metadata() const {
    QVariantMap values;
    values["mpris:trackid"] = QVariant::fromValue(QDBusObjectPath(trackObjectPath()));
    const auto track = model.activeTrack();
    if (!track) return values;
    values["xesam:title"] = QString::fromStdString(track->name());
    values["xesam:url"] =
        QUrl::fromLocalFile(QString::fromStdString(track->url().string())).toString();
    if (track->audio())
        values["mpris:length"] = framesToMicroseconds(track->frameCount(), track->sampleRate());
    return values;
}

qlonglong MprisService::position() const {
    const auto track = model.activeTrack();
    if (!track || !track->audio()) return 0;
    return framesToMicroseconds(model.playheadPosition(), track->sampleRate());
}

bool MprisService::canPlay() const { return model.canPlay(); }

bool MprisService::canSeek() const {
    const auto track = model.activeTrack();
    return track && track->audio() && track->frameCount() > 0;
}

bool MprisService::canGoNext() const {
    const auto& tracks = model.tracks();
    const auto active = model.activeTrack();
    return !tracks.empty() && (!active || tracks.back() != active);
}

bool MprisService::canGoPrevious() const {
    const auto& tracks = model.tracks();
    const auto active = model.activeTrack();
    return !tracks.empty() && (!active || tracks.front() != active);
}

QVariantMap MprisService::playerProperties() const {
    return {
        {"PlaybackStatus", playbackStatus()},
        {"LoopStatus", model.isLooping() ? "Track" : "None"},
        {"Rate", double(model.playbackRate())},
        {"Metadata", metadata()},
        {"CanGoNext", canGoNext()},
        {"CanGoPrevious", canGoPrevious()},
        {"CanPlay", canPlay()},
        {"CanPause", canPlay()},
        {"CanSeek", canSeek()},
    };
}

void MprisService::announceChanges() {
    if (!registered) return;
    const QVariantMap now = playerProperties();
    QVariantMap changed;
    for (auto it = now.begin(); it != now.end(); ++it)
        if (announced.value(it.key()) != it.value()) changed.insert(it.key(), it.value());
    announced = now;
    if (changed.isEmpty()) return;
    QDBusMessage signal = QDBusMessage::createSignal(objectPath, "org.freedesktop.DBus.Properties",
                                                     "PropertiesChanged");
    signal << QString(playerInterface) << changed << QStringList();
    connection.send(signal);
}

void MprisService::announceSeek() {
    if (!registered) return;
    QDBusMessage signal = QDBusMessage::createSignal(objectPath, playerInterface, "Seeked");
    signal << position();
    connection.send(signal);
}

// ---- what the bus asks for

void MprisService::play() {
    if (model.isPlaying()) return;
    paused = false;
    model.play();
    announceChanges();
}

void MprisService::pause() {
    if (!model.isPlaying()) return;
    // Stopping leaves the cursor at the frame heard, so Play carries on from there.
    paused = true;
    model.stop();
    announceChanges();
}

void MprisService::playPause() {
    if (model.isPlaying())
        pause();
    else
        play();
}

void MprisService::stopPlayback() {
    paused = false;
    model.stop();
    announceChanges();
}

void MprisService::next() {
    if (!canGoNext()) return;
    model.selectAdjacentTrack(1);
}

void MprisService::previous() {
    if (!canGoPrevious()) return;
    model.selectAdjacentTrack(-1);
}

void MprisService::seekBy(qlonglong offset) {
    const auto track = model.activeTrack();
    if (!canSeek()) return;
    const int64_t target =
        model.playheadPosition() + microsecondsToFrames(offset, track->sampleRate());
    if (target >= track->frameCount()) {
        // Past the end: on to the next track, as players do.
        next();
        return;
    }
    model.seek(std::max<int64_t>(0, target));
    announceSeek();
}

void MprisService::setPosition(const QString& trackID, qlonglong time) {
    if (!canSeek() || trackID != trackObjectPath() || time < 0) return;
    const auto track = model.activeTrack();
    // Compared in the bus's unit: a time past the end may still round to the last frame.
    if (time > framesToMicroseconds(track->frameCount(), track->sampleRate())) return;
    model.seek(std::min(microsecondsToFrames(time, track->sampleRate()), track->frameCount()));
    announceSeek();
}

void MprisService::setLoopStatus(const QString& status) {
    // Looping repeats the selection, else the whole track: "Track" and "Playlist" both mean on.
    const bool loop = status == "Track" || status == "Playlist";
    if (status != "None" && !loop) return;
    if (loop != model.isLooping()) model.loopPlayback();
}

void MprisService::setRate(double value) {
    if (!std::isfinite(value)) return;
    if (value <= 0) {
        pause();
        return;
    }
    // The nearest of the speeds the engine offers.
    const auto& rates = PlaybackEngine::playbackRates;
    const float target = *std::min_element(rates.begin(), rates.end(), [value](float a, float b) {
        return std::abs(a - value) < std::abs(b - value);
    });
    for (size_t guard = 0; guard < rates.size() && model.playbackRate() != target; ++guard)
        model.changePlaybackRate(model.playbackRate() < target ? 1 : -1);
}

} // namespace sonvale

#include "MprisService.moc"
