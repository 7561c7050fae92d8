#include "app/MprisService.h"
#include "audio/AudioLoader.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"
#include "support/PlaybackTestAudio.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QtTest>
#include <memory>

using namespace sonvale;

// The service and its client meet on a private session bus that dbus-run-session starts for
// this program, so nothing reaches the desktop's own bus. They use separate connections, so
// every call and signal really crosses the bus.
#define REQUIRE_PRIVATE_BUS()                                                                      \
    do {                                                                                           \
        if (qEnvironmentVariableIsSet("SONVALE_NO_DBUS_RUN_SESSION"))                              \
            QSKIP("dbus-run-session was not found when the build was configured; install the "     \
                  "package dbus (scripts/setup-deps.sh) to test MPRIS over a private bus");        \
        if (qEnvironmentVariable("SONVALE_PRIVATE_SESSION_BUS") != "1")                            \
            QSKIP("needs a private session bus: run it as `dbus-run-session -- <test>` "           \
                  "with SONVALE_PRIVATE_SESSION_BUS=1 (ctest does)");                              \
    } while (false)

namespace {

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";

// An editor with two tracks loaded from the fixtures, playing into a hand-driven output.
struct Editor {
    ManualExecutor executor;
    Preferences preferences;
    std::unique_ptr<EditorModel> model;
    AudioTrackPtr first = AudioTrack::create(test::fixture("stereo-s16.wav"));
    AudioTrackPtr second = AudioTrack::create(test::fixture("stereo.flac"));

    Editor() {
        model = std::make_unique<EditorModel>(
            executor, preferences,
            std::make_unique<PlaybackEngine>(std::make_unique<test::ManualOutput>()));
        for (const auto& track : {first, second}) {
            track->finishLoading(AudioLoader::load(track->url()));
            model->addTrack(track);
        }
        model->setSelectedTrackIDs({first->id()});
    }
};

// Receives PropertiesChanged on the client's connection.
class ChangeListener : public QObject {
    Q_OBJECT
public:
    struct Change {
        QString interface;
        QVariantMap changed;
    };
    QList<Change> changes;

    // The last announced value of a player property; invalid when none was announced.
    QVariant last(const QString& name) const {
        for (auto it = changes.rbegin(); it != changes.rend(); ++it)
            if (it->interface == MprisService::playerInterface && it->changed.contains(name))
                return it->changed.value(name);
        return {};
    }

    QList<qlonglong> seeks;

public Q_SLOTS:
    void seeked(qlonglong position) { seeks.append(position); }
    void propertiesChanged(const QString& interface, const QVariantMap& changed,
                           const QStringList&) {
        changes.append({interface, changed});
    }
};

class Client {
public:
    Client()
        : bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "mpris-test-client")) {}
    ~Client() { QDBusConnection::disconnectFromBus("mpris-test-client"); }

    // Calls asynchronously and lets the event loop run meanwhile: the service answers from
    // this same thread.
    QDBusMessage call(const QString& interface, const QString& method,
                      const QVariantList& arguments = {}) {
        auto message = QDBusMessage::createMethodCall(MprisService::serviceName,
                                                      MprisService::objectPath, interface, method);
        message.setArguments(arguments);
        QDBusPendingCall pending = bus.asyncCall(message, 5000);
        if (!QTest::qWaitFor([&] { return pending.isFinished(); }, 6000))
            qWarning("no answer to %s", qPrintable(method));
        return pending.reply();
    }
    QDBusMessage player(const QString& method, const QVariantList& arguments = {}) {
        return call(MprisService::playerInterface, method, arguments);
    }

    QVariant property(const QString& interface, const QString& name) {
        const QDBusMessage reply = call(propertiesInterface, "Get", {interface, name});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
        return reply.arguments().first().value<QDBusVariant>().variant();
    }
    QVariant playerProperty(const QString& name) {
        return property(MprisService::playerInterface, name);
    }

    QVariantMap metadata() {
        return qdbus_cast<QVariantMap>(playerProperty("Metadata").value<QDBusArgument>());
    }

    bool listen(ChangeListener& listener) {
        return bus.connect(QString(), MprisService::objectPath, propertiesInterface,
                           "PropertiesChanged", &listener,
                           SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    }

    bool listenForSeeks(ChangeListener& listener) {
        return bus.connect(QString(), MprisService::objectPath, MprisService::playerInterface,
                           "Seeked", &listener, SLOT(seeked(qlonglong)));
    }

    QDBusConnection bus;
};

// The service over an editor, with a client on its own connection.
struct Session {
    Editor editor;
    MprisService service{*editor.model};
    Client client;
    ChangeListener listener;
};

// Metadata inside a PropertiesChanged signal arrives still marshalled.
QVariantMap unmarshalled(const QVariant& value) {
    if (value.canConvert<QDBusArgument>())
        return qdbus_cast<QVariantMap>(value.value<QDBusArgument>());
    return value.toMap();
}

QVariant microseconds(qlonglong value) { return QVariant::fromValue(value); }

} // namespace

class MprisTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void withoutASessionBusTheServiceDoesNothing() {
        Editor editor;
        const QDBusConnection none =
            QDBusConnection::connectToBus(QString("unix:path=/nonexistent/bus"), "no-bus");
        QVERIFY(!none.isConnected());
        MprisService service(*editor.model, none);
        QVERIFY(!service.isRegistered());
        // The transport still works and the service stays quiet.
        editor.model->play();
        QVERIFY(editor.model->isPlaying());
        QDBusConnection::disconnectFromBus("no-bus");
    }

    void identifiesItselfAsSonvaleAndRaisesTheWindow() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        QVERIFY(s.service.isRegistered());
        QCOMPARE(s.service.registeredName(), QString(MprisService::serviceName));
        QVERIFY(s.client.bus.interface()->isServiceRegistered(MprisService::serviceName));
        const QVariantMap expected{{"Identity", "Sonvale"},
                                   {"DesktopEntry", "sonvale"},
                                   {"CanQuit", false},
                                   {"CanRaise", true}};
        for (auto it = expected.begin(); it != expected.end(); ++it)
            QCOMPARE(s.client.property(MprisService::rootInterface, it.key()), it.value());
        QCOMPARE(s.client.playerProperty("CanControl").toBool(), true);
        QSignalSpy raised(&s.service, &MprisService::raiseRequested);
        s.client.call(MprisService::rootInterface, "Raise");
        QCOMPARE(raised.count(), 1);
    }

    void aSecondServiceTakesAnInstanceName() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService first(*editor.model);
        const auto other =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, "second-sonvale");
        {
            MprisService second(*editor.model, other);
            QVERIFY(second.isRegistered());
            QVERIFY(second.registeredName().startsWith(QString(MprisService::serviceName) +
                                                       ".instance"));
        }
        QDBusConnection::disconnectFromBus("second-sonvale");
    }

    void theMetadataNamesTheActiveTrackWithItsLength() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        const QVariantMap metadata = s.client.metadata();
        QCOMPARE(metadata.value("xesam:title").toString(), QString("stereo-s16"));
        // Three seconds at 48 kHz.
        QCOMPARE(metadata.value("mpris:length").toLongLong(), 3'000'000LL);
        const QString trackID = metadata.value("mpris:trackid").value<QDBusObjectPath>().path();
        QVERIFY2(trackID.startsWith("/org/mpris/MediaPlayer2/sonvale/track/"), qPrintable(trackID));
        QCOMPARE(trackID, s.service.trackObjectPath());
    }

    void playPauseChangesThePlaybackStatusAndAnnouncesIt() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        QVERIFY(s.client.listen(s.listener));
        QCOMPARE(s.client.playerProperty("PlaybackStatus").toString(), QString("Stopped"));
        for (const bool playing : {true, false}) {
            const QString status = playing ? "Playing" : "Paused";
            s.client.player("PlayPause");
            QCOMPARE(s.editor.model->isPlaying(), playing);
            QCOMPARE(s.client.playerProperty("PlaybackStatus").toString(), status);
            QTRY_COMPARE(s.listener.last("PlaybackStatus").toString(), status);
        }
        s.client.player("Play");
        s.client.player("Stop");
        QTRY_COMPARE(s.listener.last("PlaybackStatus").toString(), QString("Stopped"));

        // Playing and looping from the window are announced too.
        s.editor.model->togglePlayback(); // Space in the window
        QTRY_COMPARE(s.listener.last("PlaybackStatus").toString(), QString("Playing"));
        s.editor.model->loopPlayback();
        QTRY_COMPARE(s.listener.last("LoopStatus").toString(), QString("Track"));
    }

    void nextSelectsTheFollowingTrackAndAnnouncesItsMetadata() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        QVERIFY(s.client.listen(s.listener));
        QCOMPARE(s.client.playerProperty("CanGoPrevious").toBool(), false);
        QCOMPARE(s.client.playerProperty("CanGoNext").toBool(), true);

        s.client.player("Next");
        QCOMPARE(s.editor.model->activeTrack(), s.editor.second);
        QTRY_VERIFY(s.listener.last("Metadata").isValid());
        QCOMPARE(unmarshalled(s.listener.last("Metadata")).value("xesam:title").toString(),
                 QString("stereo"));
        QCOMPARE(s.listener.last("CanGoNext").toBool(), false);
        QCOMPARE(s.listener.last("CanGoPrevious").toBool(), true);

        // At the end of the list Next does nothing.
        s.client.player("Next");
        QCOMPARE(s.editor.model->activeTrack(), s.editor.second);
        s.client.player("Previous");
        QCOMPARE(s.editor.model->activeTrack(), s.editor.first);
    }

    void anUnchangedStateIsNotAnnouncedAgain() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        QVERIFY(s.client.listen(s.listener));
        s.client.player("Play");
        QTRY_COMPARE(s.listener.changes.size(), 1);
        // Playing again, and a track added after the active one, change nothing the bus sees.
        s.client.player("Play");
        auto third = AudioTrack::create(test::fixture("stereo-s24.wav"));
        third->finishLoading(AudioLoader::load(third->url()));
        s.editor.model->addTrack(third);
        s.client.playerProperty("PlaybackStatus"); // a round trip
        QCOMPARE(s.listener.changes.size(), 1);
    }

    void setPositionMovesThePlayheadOfTheNamedTrackOnly() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        QVERIFY(s.client.listenForSeeks(s.listener));
        const auto track = QVariant::fromValue(QDBusObjectPath(s.service.trackObjectPath()));
        s.client.player("SetPosition", {track, microseconds(1'500'000)});
        QCOMPARE(s.editor.first->cursor(), 72'000);
        QCOMPARE(s.client.playerProperty("Position").toLongLong(), 1'500'000LL);
        QTRY_COMPARE(s.listener.seeks, QList<qlonglong>{1'500'000});

        // Another track's id, a negative position and one past the end are ignored.
        const auto other =
            QVariant::fromValue(QDBusObjectPath("/org/mpris/MediaPlayer2/sonvale/track/other"));
        s.client.player("SetPosition", {other, microseconds(500'000)});
        s.client.player("SetPosition", {track, microseconds(-1)});
        s.client.player("SetPosition", {track, microseconds(3'000'001)});
        QCOMPARE(s.editor.first->cursor(), 72'000);
        QCOMPARE(s.listener.seeks.size(), 1);
    }

    void seekMovesByAnOffsetAndStopsAtTheStart() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        s.editor.first->setCursor(48'000);
        s.client.player("Seek", {microseconds(500'000)});
        QCOMPARE(s.editor.first->cursor(), 72'000);
        s.client.player("Seek", {microseconds(-10'000'000)});
        QCOMPARE(s.editor.first->cursor(), 0);
        // Past the end goes on to the next track.
        s.client.player("Seek", {microseconds(10'000'000)});
        QCOMPARE(s.editor.model->activeTrack(), s.editor.second);
    }

    void theRateIsOneOfThePlaybackSpeeds() {
        REQUIRE_PRIVATE_BUS();
        Session s;
        QCOMPARE(s.client.playerProperty("MinimumRate").toDouble(), 0.5);
        QCOMPARE(s.client.playerProperty("MaximumRate").toDouble(), 2.0);
        s.client.call(propertiesInterface, "Set",
                      {QString(MprisService::playerInterface), QString("Rate"),
                       QVariant::fromValue(QDBusVariant(1.4))});
        QCOMPARE(s.editor.model->playbackRate(), 1.5f);
        QCOMPARE(s.client.playerProperty("Rate").toDouble(), 1.5);
    }
};

QTEST_MAIN(MprisTests)
#include "MprisTests.moc"
