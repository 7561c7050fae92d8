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

    QVariant property(const QString& interface, const QString& name) {
        const QDBusMessage reply = call(propertiesInterface, "Get", {interface, name});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
        return reply.arguments().first().value<QDBusVariant>().variant();
    }

    QVariantMap metadata() {
        return qdbus_cast<QVariantMap>(
            property(MprisService::playerInterface, "Metadata").value<QDBusArgument>());
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

// Metadata inside a PropertiesChanged signal arrives still marshalled.
QVariantMap unmarshalled(const QVariant& value) {
    if (value.canConvert<QDBusArgument>())
        return qdbus_cast<QVariantMap>(value.value<QDBusArgument>());
    return value.toMap();
}

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
        Editor editor;
        MprisService service(*editor.model);
        QVERIFY(service.isRegistered());
        QCOMPARE(service.registeredName(), QString(MprisService::serviceName));
        Client client;
        QVERIFY(client.bus.interface()->isServiceRegistered(MprisService::serviceName));
        QCOMPARE(client.property(MprisService::rootInterface, "Identity").toString(),
                 QString("Sonvale"));
        QCOMPARE(client.property(MprisService::rootInterface, "DesktopEntry").toString(),
                 QString("sonvale"));
        QCOMPARE(client.property(MprisService::rootInterface, "CanQuit").toBool(), false);
        QCOMPARE(client.property(MprisService::rootInterface, "CanRaise").toBool(), true);
        QCOMPARE(client.property(MprisService::playerInterface, "CanControl").toBool(), true);
        QSignalSpy raised(&service, &MprisService::raiseRequested);
        client.call(MprisService::rootInterface, "Raise");
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
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        const QVariantMap metadata = client.metadata();
        QCOMPARE(metadata.value("xesam:title").toString(), QString("stereo-s16"));
        // Three seconds at 48 kHz.
        QCOMPARE(metadata.value("mpris:length").toLongLong(), 3'000'000LL);
        const QString trackID = metadata.value("mpris:trackid").value<QDBusObjectPath>().path();
        QVERIFY2(trackID.startsWith("/org/mpris/MediaPlayer2/sonvale/track/"), qPrintable(trackID));
        QCOMPARE(trackID, service.trackObjectPath());
    }

    void playPauseChangesThePlaybackStatusAndAnnouncesIt() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        ChangeListener listener;
        QVERIFY(client.listen(listener));
        QCOMPARE(client.property(MprisService::playerInterface, "PlaybackStatus").toString(),
                 QString("Stopped"));

        client.call(MprisService::playerInterface, "PlayPause");
        QVERIFY(editor.model->isPlaying());
        QCOMPARE(client.property(MprisService::playerInterface, "PlaybackStatus").toString(),
                 QString("Playing"));
        QTRY_COMPARE(listener.last("PlaybackStatus").toString(), QString("Playing"));

        client.call(MprisService::playerInterface, "PlayPause");
        QVERIFY(!editor.model->isPlaying());
        QCOMPARE(client.property(MprisService::playerInterface, "PlaybackStatus").toString(),
                 QString("Paused"));
        QTRY_COMPARE(listener.last("PlaybackStatus").toString(), QString("Paused"));

        client.call(MprisService::playerInterface, "Play");
        client.call(MprisService::playerInterface, "Stop");
        QTRY_COMPARE(listener.last("PlaybackStatus").toString(), QString("Stopped"));

        // Playing and looping from the window are announced too.
        editor.model->togglePlayback(); // Space in the window
        QTRY_COMPARE(listener.last("PlaybackStatus").toString(), QString("Playing"));
        editor.model->loopPlayback();
        QTRY_COMPARE(listener.last("LoopStatus").toString(), QString("Track"));
    }

    void nextSelectsTheFollowingTrackAndAnnouncesItsMetadata() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        ChangeListener listener;
        QVERIFY(client.listen(listener));
        QCOMPARE(client.property(MprisService::playerInterface, "CanGoPrevious").toBool(), false);
        QCOMPARE(client.property(MprisService::playerInterface, "CanGoNext").toBool(), true);

        client.call(MprisService::playerInterface, "Next");
        QCOMPARE(editor.model->activeTrack(), editor.second);
        QTRY_VERIFY(listener.last("Metadata").isValid());
        QCOMPARE(unmarshalled(listener.last("Metadata")).value("xesam:title").toString(),
                 QString("stereo"));
        QCOMPARE(listener.last("CanGoNext").toBool(), false);
        QCOMPARE(listener.last("CanGoPrevious").toBool(), true);

        // At the end of the list Next does nothing.
        client.call(MprisService::playerInterface, "Next");
        QCOMPARE(editor.model->activeTrack(), editor.second);
        client.call(MprisService::playerInterface, "Previous");
        QCOMPARE(editor.model->activeTrack(), editor.first);
    }

    void anUnchangedStateIsNotAnnouncedAgain() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        ChangeListener listener;
        QVERIFY(client.listen(listener));
        client.call(MprisService::playerInterface, "Play");
        QTRY_COMPARE(listener.changes.size(), 1);
        // Playing again, and a track added after the active one, change nothing the bus sees.
        client.call(MprisService::playerInterface, "Play");
        auto third = AudioTrack::create(test::fixture("stereo-s24.wav"));
        third->finishLoading(AudioLoader::load(third->url()));
        editor.model->addTrack(third);
        client.property(MprisService::playerInterface, "PlaybackStatus"); // a round trip
        QCOMPARE(listener.changes.size(), 1);
    }

    void setPositionMovesThePlayheadOfTheNamedTrackOnly() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        ChangeListener listener;
        QVERIFY(client.listenForSeeks(listener));
        const QDBusObjectPath track(service.trackObjectPath());
        client.call(MprisService::playerInterface, "SetPosition",
                    {QVariant::fromValue(track), QVariant::fromValue(qlonglong(1'500'000))});
        QCOMPARE(editor.first->cursor(), 72'000);
        QCOMPARE(client.property(MprisService::playerInterface, "Position").toLongLong(),
                 1'500'000LL);
        QTRY_COMPARE(listener.seeks, QList<qlonglong>{1'500'000});

        // Another track's id, a negative position and one past the end are ignored.
        const QDBusObjectPath other("/org/mpris/MediaPlayer2/sonvale/track/other");
        client.call(MprisService::playerInterface, "SetPosition",
                    {QVariant::fromValue(other), QVariant::fromValue(qlonglong(500'000))});
        client.call(MprisService::playerInterface, "SetPosition",
                    {QVariant::fromValue(track), QVariant::fromValue(qlonglong(-1))});
        client.call(MprisService::playerInterface, "SetPosition",
                    {QVariant::fromValue(track), QVariant::fromValue(qlonglong(3'000'001))});
        QCOMPARE(editor.first->cursor(), 72'000);
        QCOMPARE(listener.seeks.size(), 1);
    }

    void seekMovesByAnOffsetAndStopsAtTheStart() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        editor.first->setCursor(48'000);
        client.call(MprisService::playerInterface, "Seek",
                    {QVariant::fromValue(qlonglong(500'000))});
        QCOMPARE(editor.first->cursor(), 72'000);
        client.call(MprisService::playerInterface, "Seek",
                    {QVariant::fromValue(qlonglong(-10'000'000))});
        QCOMPARE(editor.first->cursor(), 0);
        // Past the end goes on to the next track.
        client.call(MprisService::playerInterface, "Seek",
                    {QVariant::fromValue(qlonglong(10'000'000))});
        QCOMPARE(editor.model->activeTrack(), editor.second);
    }

    void theRateIsOneOfThePlaybackSpeeds() {
        REQUIRE_PRIVATE_BUS();
        Editor editor;
        MprisService service(*editor.model);
        Client client;
        QCOMPARE(client.property(MprisService::playerInterface, "MinimumRate").toDouble(), 0.5);
        QCOMPARE(client.property(MprisService::playerInterface, "MaximumRate").toDouble(), 2.0);
        client.call(propertiesInterface, "Set",
                    {QString(MprisService::playerInterface), QString("Rate"),
                     QVariant::fromValue(QDBusVariant(1.4))});
        QCOMPARE(editor.model->playbackRate(), 1.5f);
        QCOMPARE(client.property(MprisService::playerInterface, "Rate").toDouble(), 1.5);
    }
};

QTEST_MAIN(MprisTests)
#include "MprisTests.moc"
