#include "app/MainWindow.h"
#include "app/QtExecutor.h"
#include "app/SnapshotsDialog.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"

#include <QAbstractButton>
#include <QFileDialog>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

using namespace sonvale;
namespace fs = std::filesystem;

namespace {

QString qs(const fs::path& path) { return QString::fromStdString(path.string()); }

// A window over a model with preferences that live only in memory.
struct Harness {
    QtExecutor executor;
    Preferences preferences;
    EditorModel model{executor, preferences};
    MainWindow window{model};

    ~Harness() { executor.waitForBackground(); }

    AudioTrackPtr openAndLoad(const fs::path& file) {
        auto opened = model.open({file});
        if (opened.size() != 1 || !QTest::qWaitFor([&] { return opened[0]->isReady(); }, 10000))
            return nullptr;
        return opened[0];
    }

    // Save Session As through its dialog; true once the bundle is the open document.
    bool saveAs(const fs::path& bundle) {
        window.action(ActionID::saveSessionAs)->trigger();
        QFileDialog* dialog = window.sessionDialog();
        if (!dialog) return false;
        dialog->selectFile(qs(bundle));
        static_cast<QDialog*>(dialog)->accept();
        return QTest::qWaitFor(
            [&] {
                return model.document() && model.document()->url == bundle &&
                       !model.isSavingDocument();
            },
            10000);
    }
};

QAbstractButton* buttonTitled(QMessageBox* box, const QString& text) {
    for (QAbstractButton* button : box->buttons())
        if (button->text().remove('&') == text) return button;
    return nullptr;
}

} // namespace

class SessionWindowTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void theFileMenuOffersTheSessionCommands_data() {
        QTest::addColumn<ActionID>("id");
        QTest::addColumn<QKeySequence>("shortcut");
        QTest::addColumn<bool>("enabledWithoutDocument");
        QTest::newRow("new") << ActionID::newSession << QKeySequence("Ctrl+N") << true;
        QTest::newRow("open") << ActionID::openSession << QKeySequence() << true;
        QTest::newRow("save") << ActionID::saveSession << QKeySequence("Ctrl+S") << true;
        QTest::newRow("save as") << ActionID::saveSessionAs << QKeySequence("Ctrl+Shift+S") << true;
        QTest::newRow("revert") << ActionID::revertToSaved << QKeySequence() << false;
        QTest::newRow("snapshots") << ActionID::snapshots << QKeySequence() << false;
    }

    void theFileMenuOffersTheSessionCommands() {
        QFETCH(ActionID, id);
        QFETCH(QKeySequence, shortcut);
        QFETCH(bool, enabledWithoutDocument);
        Harness h;
        QAction* action = h.window.action(id);
        QVERIFY(action);
        QVERIFY(h.window.menuBar()->actions().first()->menu()->actions().contains(action));
        QCOMPARE(action->shortcut(), shortcut);
        QCOMPARE(action->isEnabled(), enabledWithoutDocument);
    }

    void saveAsWritesABundleAndTheTitleFollowsItsEditedState() {
        Harness h;
        test::TemporaryFolder folder;
        auto track = h.openAndLoad(test::fixture("stereo-s16.wav"));
        QVERIFY(track);
        QVERIFY(!h.window.isWindowModified());
        track->setSelection(FrameRange{0, 1000});
        h.window.action(ActionID::deleteSelection)->trigger();
        QCOMPARE(h.window.windowTitle(),
                 QString::fromUtf8("stereo-s16.wav \u2014 Untitled Session[*]"));
        QVERIFY(h.window.isWindowModified());

        // Save without a document asks where, proposing the untitled name.
        h.window.action(ActionID::saveSession)->trigger();
        QVERIFY(h.window.sessionDialog());
        QVERIFY(h.window.sessionDialog()->selectedFiles().value(0).endsWith(
            "/Untitled Session.sonvale"));
        static_cast<QDialog*>(h.window.sessionDialog())->reject();
        QTRY_VERIFY(!h.window.sessionDialog());

        QVERIFY(h.saveAs(folder / "Take.sonvale"));
        QVERIFY(fs::is_regular_file(folder / "Take.sonvale" / "Session.json"));
        QCOMPARE(h.window.windowTitle(), QString::fromUtf8("stereo-s16.wav \u2014 Take[*]"));
        QVERIFY(!h.window.isWindowModified());
        QVERIFY(h.window.action(ActionID::snapshots)->isEnabled());
        QVERIFY(!h.window.action(ActionID::revertToSaved)->isEnabled());
        QCOMPARE(h.preferences.recentSessions(), std::vector{(folder / "Take.sonvale").string()});
        auto* recent = h.window.findChild<QMenu*>("openRecentMenu");
        QCOMPARE(recent->actions().first()->text(), QString("Take"));

        track->setGainDB(-6);
        QVERIFY(h.window.isWindowModified());
        QVERIFY(h.window.action(ActionID::revertToSaved)->isEnabled());
    }

    void closingWithUnsavedChangesAsksFirst_data() {
        QTest::addColumn<bool>("withDocument");
        QTest::addColumn<QString>("question");
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("closes");
        const QString untitled = "Do you want to save this session?";
        const QString take =
            QString::fromUtf8("Do you want to save the changes to \u201CTake\u201D?");
        QTest::newRow("untitled, cancel") << false << untitled << "Cancel" << false;
        QTest::newRow("untitled, quit")
            << false << untitled << "Quit Without Saving Session" << true;
        QTest::newRow("document, cancel") << true << take << "Cancel" << false;
        QTest::newRow("document, don't save") << true << take << "Don't Save" << true;
        QTest::newRow("document, save") << true << take << "Save" << true;
    }

    void closingWithUnsavedChangesAsksFirst() {
        QFETCH(bool, withDocument);
        QFETCH(QString, question);
        QFETCH(QString, button);
        QFETCH(bool, closes);
        Harness h;
        test::TemporaryFolder folder;
        auto track = h.openAndLoad(test::fixture("stereo-s16.wav"));
        QVERIFY(track);
        track->setSelection(FrameRange{0, 1000});
        h.window.action(ActionID::deleteSelection)->trigger();
        if (withDocument) {
            QVERIFY(h.saveAs(folder / "Take.sonvale"));
            track->setGainDB(-6);
        }
        h.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&h.window));

        QVERIFY(!h.window.close());
        QMessageBox* box = h.window.sessionQuestion();
        QVERIFY(box);
        QCOMPARE(box->text(), question);
        QAbstractButton* choice = buttonTitled(box, button);
        QVERIFY(choice);
        choice->click();
        QTRY_COMPARE_WITH_TIMEOUT(h.window.isVisible(), !closes, 10000);
        QVERIFY(!h.window.sessionQuestion());
        // Nothing was thrown away by the question itself.
        QCOMPARE(track->gainDB(), withDocument ? -6.0f : 0.0f);
        QCOMPARE(h.model.needsSaving(), button != "Save");
    }

    void newAndOpenSessionReplaceTheSessionAskingOverChanges() {
        Harness h;
        test::TemporaryFolder folder;
        const fs::path bundle = folder / "Take.sonvale";
        QVERIFY(h.openAndLoad(test::fixture("mono.wav")));
        QVERIFY(h.saveAs(bundle));
        h.model.tracks().at(0)->setGainDB(-6);

        // A session document on the command line or dropped goes through the same question.
        h.window.openFiles({qs(bundle)});
        QMessageBox* box = h.window.sessionQuestion();
        QVERIFY(box);
        buttonTitled(box, "Don't Save")->click();
        QCOMPARE(h.model.tracks().size(), size_t(1));
        QCOMPARE(h.model.tracks().at(0)->gainDB(), 0.0f);
        QVERIFY(!h.window.isWindowModified());

        // Nothing to lose: no question.
        h.window.action(ActionID::newSession)->trigger();
        QVERIFY(!h.window.sessionQuestion());
        QVERIFY(h.model.tracks().empty());
        QCOMPARE(h.window.windowTitle(), QString("Untitled Session[*]"));

        // File > Open Recent opens it again.
        h.window.findChild<QMenu*>("openRecentMenu")->actions().first()->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(h.window.windowTitle(),
                                  QString::fromUtf8("mono.wav \u2014 Take[*]"), 10000);
        QCOMPARE(h.model.tracks().size(), size_t(1));
    }

    // Remove from List asks about the clips that play the track; Cancel keeps everything.
    void removingATrackWhoseClipsPlayAsksAboutThem() {
        Harness h;
        const auto track = h.openAndLoad(test::fixture("mono.wav"));
        QVERIFY(track);
        const TimelinePtr timeline = h.model.timeline();
        const Uuid lane = timeline->addLane("Voice").id;
        timeline->insertCopy(
            {Uuid::random(), "Take", track->audio(), 0, 1000, 0, 0, 0, track->id()}, lane, 0,
            "Paste Clip");
        for (const QString answer : {"Cancel", "Remove the Clips Too"}) {
            h.model.setSelectedTrackIDs({track->id()});
            h.window.action(ActionID::removeTracks)->trigger();
            QMessageBox* box = h.window.sessionQuestion();
            QVERIFY(box);
            QCOMPARE(box->text(), QString("Remove “mono” from the list?"));
            QVERIFY(box->informativeText().startsWith("Its audio plays in 1 clip on “Voice”."));
            buttonTitled(box, answer)->click();
            QCOMPARE(h.model.tracks().size(), size_t(answer == "Cancel" ? 1 : 0));
            QCOMPARE(timeline->lanes().size(), size_t(answer == "Cancel" ? 1 : 0));
        }
    }

    void revertingAsksWhetherToKeepFilesMadeSinceTheSave_data() {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("reverted");
        QTest::addColumn<bool>("fileStays");
        QTest::newRow("keep") << "Keep File" << true << true;
        QTest::newRow("trash") << "Move to Trash" << true << false;
        QTest::newRow("cancel") << "Cancel" << false << true;
    }

    void revertingAsksWhetherToKeepFilesMadeSinceTheSave() {
        QFETCH(QString, button);
        QFETCH(bool, reverted);
        QFETCH(bool, fileStays);
        Harness h;
        test::TemporaryFolder folder;
        h.preferences.setRecordingsFolderPath((folder / "Recordings").string());
        auto track = h.openAndLoad(test::fixture("mono.wav"));
        QVERIFY(track);
        QVERIFY(h.saveAs(folder / "Take.sonvale"));
        track->setSelection(FrameRange{0, 1000});
        h.model.newTrackFromSelection();
        QTRY_COMPARE_WITH_TIMEOUT(h.model.tracks().size(), size_t(2), 10000);
        const fs::path made = h.model.tracks().at(1)->url();

        h.window.action(ActionID::revertToSaved)->trigger();
        buttonTitled(h.window.sessionQuestion(), "Revert")->click();
        auto* box = h.window.findChild<QMessageBox*>("keepNewFilesQuestion");
        QVERIFY(box);
        QCOMPARE(box->text(), QString("Keep the new audio file?"));
        QVERIFY(box->informativeText().contains(qs(made.parent_path())));
        buttonTitled(box, button)->click();
        QCOMPARE(h.model.tracks().size(), size_t(reverted ? 1 : 2));
        QCOMPARE(fs::exists(made), fileStays);
    }

    void theSnapshotsDialogListsEachSaveAndRestoresAfterAsking() {
        Harness h;
        test::TemporaryFolder folder;
        {
            SnapshotsDialog none(h.model);
            QCOMPARE(none.list()->count(), 0);
            QVERIFY(none.findChild<QLabel*>("noSnapshotsTitle")->isVisibleTo(&none));
            QCOMPARE(none.findChild<QLabel*>("noSnapshotsText")->text(),
                     QString("Every save keeps one, up to 20."));
        }
        QVERIFY(h.openAndLoad(test::fixture("mono.wav")));
        h.window.resize(1600, 900);
        QVERIFY(h.saveAs(folder / "Take.sonvale"));
        h.model.tracks().at(0)->setGainDB(-6);
        h.window.action(ActionID::saveSession)->trigger();
        // The save shows its progress in the status bar while it runs.
        QCOMPARE(h.window.findChild<QLabel*>("statusText")->text(),
                 QString::fromUtf8("Saving Session\u2026"));
        QTRY_VERIFY_WITH_TIMEOUT(!h.model.isSavingDocument(), 10000);
        // Each snapshot keeps the window's picture, scaled down to 1280 pixels wide.
        const auto kept = h.model.snapshots();
        QCOMPARE(kept.size(), size_t(2));
        QVERIFY(kept.back().image);
        QCOMPARE(QImage(qs(*kept.back().image)).width(), 1280);
        QVERIFY(!h.model.needsSaving());
        h.model.tracks().at(0)->setGainDB(-12);

        h.window.action(ActionID::snapshots)->trigger();
        auto* dialog = h.window.findChild<SnapshotsDialog*>();
        QVERIFY(dialog);
        QListWidget* list = dialog->list();
        QCOMPARE(list->count(), 2);
        // Newest first; ids are dates that sort in time order.
        QVERIFY(list->item(0)->data(Qt::UserRole).toString() >
                list->item(1)->data(Qt::UserRole).toString());
        QVERIFY(list->item(0)->text().endsWith("\n1 track, 0 lanes, 0 clips"));

        // Restoring the older one asks first and changes nothing until answered.
        list->setCurrentRow(1);
        dialog->findChild<QPushButton*>("restoreSnapshot")->click();
        auto* question = dialog->findChild<QMessageBox*>("restoreSnapshotQuestion");
        QVERIFY(question);
        QCOMPARE(question->text(),
                 "Restore the snapshot of " + list->item(1)->text().section('\n', 0, 0) + "?");
        QCOMPARE(h.model.tracks().at(0)->gainDB(), -12.0f);
        buttonTitled(question, "Restore")->click();
        QCOMPARE(h.model.tracks().at(0)->gainDB(), 0.0f);
        QVERIFY(h.model.document());
        QVERIFY(h.window.isWindowModified());
    }

    void aMissingFileIsLocatedFromItsFormerFolder() {
        Harness h;
        test::TemporaryFolder folder;
        fs::create_directories(folder / "moved");
        fs::copy_file(test::fixture("mono.wav"), folder / "moved" / "take.wav");
        auto track = AudioTrack::create(folder / "take.wav");
        h.model.addTrack(track);
        h.model.load(track);
        h.model.setSelectedTrackIDs({track->id()});
        QTRY_VERIFY_WITH_TIMEOUT(EditorModel::isMissing(*track), 10000);
        QVERIFY(h.window.trackList()->item(0)->text().endsWith(
            QString::fromStdString(EditorModel::missingFileMessage(folder / "take.wav"))));
        QVERIFY(h.window.trackList()->actions().contains(h.window.action(ActionID::locateMissing)));
        QVERIFY(h.window.action(ActionID::locateMissing)->isEnabled());
        QVERIFY(!h.window.findChild<QPushButton*>("locateButton")->isHidden());

        h.window.action(ActionID::locateMissing)->trigger();
        QFileDialog* dialog = h.window.sessionDialog();
        QVERIFY(dialog);
        QCOMPARE(dialog->directory().absolutePath(), qs(folder.path()));
        dialog->selectFile(qs(folder / "moved" / "take.wav"));
        static_cast<QDialog*>(dialog)->accept();
        QCOMPARE(track->url(), folder / "moved" / "take.wav");
        QTRY_VERIFY_WITH_TIMEOUT(track->isReady(), 10000);
        QVERIFY(h.window.findChild<QPushButton*>("locateButton")->isHidden());
    }
};

// The XDG folders point into a temporary folder before anything reads them.
int main(int argc, char** argv) {
    QTemporaryDir home;
    qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + "/config").toUtf8());
    QApplication app(argc, argv);
    SessionWindowTests tests;
    return QTest::qExec(&tests, argc, argv);
}

#include "SessionWindowTests.moc"
