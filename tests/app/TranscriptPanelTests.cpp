// The Transcript panel in the whole window, with the real speech engine on read speech:
// transcribing with progress and Cancel, lines that go where they were said, the line being
// heard, the copy, the menu, the title, summary and topic regions from a language model, and
// the notice after an edit.

#include "app/MultitrackHarness.h"
#include "app/TranscriptPanel.h"
#include "support/AudioFiles.h"
#include "support/FakeLanguageModel.h"

#include <QAction>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QTreeWidget>
#include <QtTest>

using namespace sonvale;

class TranscriptPanelTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void readSpeechBecomesLinesThatGoWhereTheyWereSaid() {
        test::MultitrackHarness h;
        h.window.resize(1366, 720);
        h.window.show();
        auto opened = h.model.open({test::fixture("read-speech.flac")});
        QVERIFY(opened.size() == 1 && QTest::qWaitFor([&] { return opened[0]->isReady(); }, 10000));
        const auto track = opened[0];
        h.model.setSelectedTrackIDs({track->id()});

        auto* tabs = h.window.trackPanelTabs();
        auto* panel = h.window.transcriptPanel();
        QVERIFY(tabs && panel);
        tabs->setCurrentWidget(panel);
        auto* transcribe = panel->findChild<QPushButton*>("transcribeButton");
        auto* copy = panel->findChild<QPushButton*>("copyTranscript");
        auto* progress = panel->findChild<QProgressBar*>("transcriptProgress");
        auto* cancel = panel->findChild<QPushButton*>("cancelTranscription");
        auto* notice = panel->findChild<QLabel*>("transcriptNotice");
        QCOMPARE(transcribe->text(), QString("Transcribe"));
        QVERIFY(transcribe->isEnabled() && !copy->isEnabled() && !progress->isVisible());

        // Started and cancelled: the bar and Cancel come and go, nothing else changes.
        transcribe->click();
        QVERIFY(progress->isVisible() && cancel->isVisible() && !transcribe->isEnabled());
        QVERIFY(notice->text().startsWith(QString::fromUtf8("Transcribing\u2026")));
        cancel->click();
        QVERIFY(!progress->isVisible() && transcribe->isEnabled());
        QVERIFY(!track->transcript());

        // From the menu this time, to the end.
        QAction* menuTranscribe = h.window.action(ActionID::transcribe);
        QVERIFY(menuTranscribe->isEnabled());
        menuTranscribe->trigger();
        QVERIFY(QTest::qWaitFor([&] { return track->transcript().has_value(); }, 30000));
        QVERIFY(!progress->isVisible() && !notice->isVisible());
        auto* lines = panel->list();
        QCOMPARE(lines->topLevelItemCount(), 2);
        QCOMPARE(lines->topLevelItem(0)->text(0), QString("0:03"));
        QCOMPARE(lines->topLevelItem(0)->text(1), QString("go forward ten meters"));
        QCOMPARE(lines->topLevelItem(1)->text(0), QString("0:08"));
        QCOMPARE(transcribe->text(), QString("Transcribe Again"));
        QCOMPARE(menuTranscribe->text(), QString("Transcribe Again"));

        // A click on a line puts the cursor where it was said, and the line is the one heard;
        // Enter on the current line does the same.
        const auto& segments = track->transcript()->segments;
        const QRect second = lines->visualItemRect(lines->topLevelItem(1));
        QTest::mouseClick(lines->viewport(), Qt::LeftButton, {}, second.center());
        QCOMPARE(track->cursor(), std::llround(segments[1].start * 44100));
        QCOMPARE(panel->heardLine(), std::optional<int>(1));
        QVERIFY(lines->topLevelItem(1)->font(1).bold());
        lines->setCurrentItem(lines->topLevelItem(0));
        QTest::keyClick(lines, Qt::Key_Return);
        QCOMPARE(track->cursor(), std::llround(segments[0].start * 44100));
        QCOMPARE(panel->heardLine(), std::optional<int>(0));
        QVERIFY(!lines->topLevelItem(1)->font(1).bold());
        track->setCursor(int64_t(7.0 * 44100)); // between the lines
        QCOMPARE(panel->heardLine(), std::nullopt);

        QVERIFY(copy->isEnabled());
        copy->click();
        QVERIFY(
            QGuiApplication::clipboard()->text().startsWith("0:03 go forward ten meters\n0:08 "));

        // A title, a summary and topic regions from a language model (a fake that answers as
        // told); the regions show in the marker list.
        auto languageModel = std::make_shared<test::FakeLanguageModel>();
        h.model.setLanguageModel(languageModel);
        languageModel->answers = {
            R"({"title": "Directions", "summary": "Someone says to go forward ten meters."})",
            R"({"topics": [{"title": "Directions", "line": 0}, {"title": "Reading", "line": 1}]})"};
        auto* suggest = panel->findChild<QPushButton*>("suggestTitle");
        auto* overview = panel->findChild<QWidget*>("transcriptOverview");
        QVERIFY(suggest->isVisible() && suggest->isEnabled() && !overview->isVisible());
        suggest->click();
        QVERIFY(QTest::qWaitFor([&] { return overview->isVisible(); }, 5000));
        QCOMPARE(panel->findChild<QLabel*>("suggestedTitle")->text(), QString("Directions"));
        QVERIFY(panel->findChild<QPushButton*>("useSuggestedTitle")->isEnabled());
        h.window.action(ActionID::regionsFromTopics)->trigger();
        QVERIFY(QTest::qWaitFor([&] { return track->regions().size() == 2; }, 5000));
        QCOMPARE(tabs->currentIndex(), 0);
        tabs->setCurrentWidget(panel);
        h.model.preferences().setShowsAIFeatures(false);
        QVERIFY(!suggest->isVisible() && !h.window.action(ActionID::suggestTitle)->isVisible());
        h.model.preferences().setShowsAIFeatures(true);

        test::saveScreenshots(h.window, "transcript");

        // An edit: the lines stay, with the notice, and the button offers to start again.
        track->setSelection(FrameRange{0, 44100});
        h.model.deleteSelection();
        QVERIFY(notice->isVisible());
        QCOMPARE(notice->text(),
                 QString("The audio was edited after transcribing, so times may be off."));
        QCOMPARE(transcribe->text(), QString("Transcribe Again (audio was edited)"));
        QCOMPARE(lines->topLevelItemCount(), 2);
    }
};

QTEST_MAIN(TranscriptPanelTests)
#include "TranscriptPanelTests.moc"
