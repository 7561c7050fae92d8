#include "app/MultitrackHarness.h"
#include "app/SettingsDialog.h"
#include "base/ManualExecutor.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"
#include "support/AudioFiles.h"
#include "support/TinyWhisperModel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QtTest>
#include <fstream>
#include <iterator>
#include <memory>

using namespace sonvale;

namespace {

// A Preferences over a file in a temporary folder; reread() reads that file afresh, which
// proves a change reached the file and not only the object.
struct Store {
    test::TemporaryFolder folder;
    std::filesystem::path file = folder / "preferences.json";
    Preferences preferences{file};
    std::unique_ptr<Preferences> reread() const { return std::make_unique<Preferences>(file); }
    std::string text() const {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
};

template <typename Widget> Widget* control(QWidget& dialog, const char* name) {
    auto* widget = dialog.findChild<Widget*>(name);
    if (!widget) qFatal("no control named %s", name);
    return widget;
}

void choose(QComboBox* menu, const QVariant& data) {
    const int index = menu->findData(data);
    if (index < 0) qFatal("no choice %s", qPrintable(data.toString()));
    menu->setCurrentIndex(index);
}

} // namespace

class SettingsTests : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void openingTheWindowWritesNothing() {
        Store store;
        SettingsDialog dialog(store.preferences);
        QVERIFY(!std::filesystem::exists(store.file));
        QCOMPARE(control<QComboBox>(dialog, "canvasTheme")->currentData().toString(),
                 QString("classic"));
        QVERIFY(control<QCheckBox>(dialog, "snapToZeroCrossings")->isChecked());
        QCOMPARE(control<QComboBox>(dialog, "recordingFormat")->currentText(),
                 QString("WAV 24-bit"));
        QCOMPARE(control<QComboBox>(dialog, "launchSession")->currentText(),
                 QString("The last session"));
    }

    void eachChoiceIsWrittenThroughToTheFile() {
        Store store;
        SettingsDialog dialog(store.preferences);
        auto* theme = control<QComboBox>(dialog, "canvasTheme");
        QCOMPARE(theme->count(), 13);
        choose(theme, "ocean");
        QCOMPARE(store.reread()->canvasTheme(), CanvasThemeID::ocean);

        choose(control<QComboBox>(dialog, "spectrogramFFTSize"), 4096);
        choose(control<QComboBox>(dialog, "spectrogramColorMap"),
               int(SpectrogramColorMap::viridis));
        control<QCheckBox>(dialog, "spectrogramLogFrequency")->click();
        QVERIFY(store.reread()->spectrogramSettings() ==
                (SpectrogramSettings{4096, SpectrogramColorMap::viridis, false}));

        control<QCheckBox>(dialog, "snapToZeroCrossings")->click();
        QVERIFY(!store.reread()->snapToZeroCrossings());
        auto* shows = control<QCheckBox>(dialog, "showsAIFeatures");
        QVERIFY(shows->isChecked());
        shows->click();
        QVERIFY(!store.reread()->showsAIFeatures());

        auto* format = control<QComboBox>(dialog, "recordingFormat");
        QCOMPARE(format->count(), 3);
        for (const auto value : {RecordingFormat::wav32Float, RecordingFormat::wav16}) {
            choose(format, int(value));
            QVERIFY(store.reread()->recordingFormat() == value);
        }
        auto* launch = control<QComboBox>(dialog, "launchSession");
        for (const auto value :
             {Preferences::LaunchSession::empty, Preferences::LaunchSession::lastSession}) {
            choose(launch, value == Preferences::LaunchSession::empty ? "empty" : "lastSession");
            QVERIFY(store.reread()->launchSession() == value);
        }
    }

    void followingTheSystemAppearanceSwapsWhichThemeMenusAreEnabled() {
        Store store;
        SettingsDialog dialog(store.preferences);
        auto* theme = control<QComboBox>(dialog, "canvasTheme");
        auto* light = control<QComboBox>(dialog, "lightCanvasTheme");
        auto* dark = control<QComboBox>(dialog, "darkCanvasTheme");
        QVERIFY(theme->isEnabled() && !light->isEnabled() && !dark->isEnabled());

        control<QCheckBox>(dialog, "followsSystemAppearance")->click();
        QVERIFY(store.reread()->followsSystemAppearance());
        QVERIFY(!theme->isEnabled() && light->isEnabled() && dark->isEnabled());

        choose(light, "paper");
        choose(dark, "midnight");
        const auto stored = store.reread();
        QCOMPARE(stored->lightCanvasTheme(), CanvasThemeID::paper);
        QCOMPARE(stored->darkCanvasTheme(), CanvasThemeID::midnight);
        QCOMPARE(stored->canvasTheme(true), CanvasThemeID::midnight);
        QCOMPARE(stored->canvasTheme(false), CanvasThemeID::paper);
    }

    void theCustomLoudnessTargetIsSetChangedAndRemoved() {
        Store store;
        SettingsDialog dialog(store.preferences);
        auto* uses = control<QCheckBox>(dialog, "usesCustomLoudnessTarget");
        auto* target = control<QDoubleSpinBox>(dialog, "customLoudnessTarget");
        QVERIFY(!target->isEnabled());
        // While unchecked, moving the value sets nothing.
        target->setValue(-30);
        QVERIFY(!std::filesystem::exists(store.file));

        uses->click();
        QCOMPARE(store.reread()->customLoudnessTarget(), std::optional<double>(-30.0));
        QVERIFY(target->isEnabled());
        target->setValue(-20.5);
        QCOMPARE(store.reread()->customLoudnessTarget(), std::optional<double>(-20.5));

        uses->click();
        QVERIFY(!store.reread()->customLoudnessTarget());
        QVERIFY(store.text().find("customLoudnessTarget") == std::string::npos);
    }

    void theRecordingsFolderIsChosenAndResetToTheDefault() {
        Store store;
        const test::TemporaryFolder chosen;
        SettingsDialog dialog(store.preferences);
        auto* shown = control<QLineEdit>(dialog, "recordingsFolder");
        auto* reset = control<QPushButton>(dialog, "useDefaultRecordingsFolder");
        QCOMPARE(shown->text(),
                 QString::fromStdString(Preferences::defaultRecordingsFolder().string()));
        QVERIFY(!reset->isEnabled());
        auto* chooseButton = control<QPushButton>(dialog, "chooseRecordingsFolder");
        // Cancelling the chooser keeps the folder.
        chooseButton->click();
        control<QFileDialog>(dialog, "recordingsFolderChooser")->reject();
        QVERIFY(!std::filesystem::exists(store.file));

        chooseButton->click();
        auto* chooser = control<QFileDialog>(dialog, "recordingsFolderChooser");
        QCOMPARE(chooser->fileMode(), QFileDialog::Directory);
        chooser->setDirectory(QString::fromStdString(chosen.path().string()));
        QVERIFY(QMetaObject::invokeMethod(chooser, "accept"));
        const auto path = store.reread()->recordingsFolderPath();
        QVERIFY(path.has_value());
        QCOMPARE(std::filesystem::path(*path), chosen.path());
        QCOMPARE(shown->text(), QString::fromStdString(chosen.path().string()));
        QVERIFY(reset->isEnabled());

        reset->click();
        QVERIFY(!store.reread()->recordingsFolderPath());
        QCOMPARE(shown->text(),
                 QString::fromStdString(Preferences::defaultRecordingsFolder().string()));
        QVERIFY(!reset->isEnabled());
    }

    void anInputDeviceIsChosenByItsIdentifierAndTheDefaultClearsIt() {
        Store store;
        SettingsDialog dialog(store.preferences);
        dialog.setInputDevices({{"ALSA: USB Mic", "USB Mic"}, {"ALSA: Line In", "Line In"}});
        auto* input = control<QComboBox>(dialog, "inputDevice");
        QCOMPARE(input->count(), 3);
        QCOMPARE(input->currentText(), QString("System default"));
        input->setCurrentIndex(input->findText("Line In"));
        QCOMPARE(store.reread()->inputDeviceUID(), std::optional<std::string>("ALSA: Line In"));
        input->setCurrentIndex(0);
        QVERIFY(!store.reread()->inputDeviceUID());
    }

    // Showing the recording page lists the inputs without changing the choice, and a chosen
    // input that is unplugged stays chosen.
    void aChosenInputThatIsUnpluggedStaysChosen() {
        Store store;
        store.preferences.setInputDeviceUID("ALSA: Gone");
        SettingsDialog dialog(store.preferences);
        auto* input = control<QComboBox>(dialog, "inputDevice");
        auto* tabs = control<QTabWidget>(dialog, "settingsTabs");
        tabs->setCurrentIndex(tabs->indexOf(input->parentWidget()));
        QCOMPARE(input->itemText(0), QString("System default"));
        QCOMPARE(input->currentData().toString(), QString("ALSA: Gone"));
        dialog.setInputDevices({{"ALSA: USB Mic", "USB Mic"}});
        QCOMPARE(input->currentText(), QString("ALSA: Gone (not connected)"));
        QCOMPARE(store.reread()->inputDeviceUID(), std::optional<std::string>("ALSA: Gone"));
    }

    void theTranscriptionLanguageIsALocaleIdentifierOrAutomatic() {
        Store store;
        SettingsDialog dialog(store.preferences);
        dialog.setTranscriptionLanguages({{"en-US", "de-DE"}, "en-US"}, "Speech engines: two");
        auto* language = control<QComboBox>(dialog, "transcriptionLanguage");
        QCOMPARE(language->currentText(), QString("Automatic (English (United States))"));
        choose(language, "de-DE");
        QCOMPARE(language->currentText(), QString("German (Germany)"));
        QCOMPARE(store.reread()->transcriptionLanguage(), std::optional<std::string>("de-DE"));
        language->setCurrentIndex(0);
        QVERIFY(!store.reread()->transcriptionLanguage());
    }

    void modelsAreListedAndRemovedOnlyAfterAsking() {
        Store store;
        ManualExecutor executor;
        EditorModel model(executor, store.preferences);
        model.setModelFolder(ModelFolder{store.folder / "Models"});
        std::filesystem::create_directories(store.folder / "Models");
        std::ofstream(store.folder / "Models" / "small.gguf") << "weights";
        test::writeTinyWhisperModel(store.folder / "Models" / "ggml-base.en.bin", false);
        SettingsDialog dialog(store.preferences);
        dialog.showModels(model);
        auto* list = control<QListWidget>(dialog, "installedModels");
        QCOMPARE(list->count(), 2);
        control<QTabWidget>(dialog, "settingsTabs")->setCurrentIndex(4);
        dialog.show();
        test::saveScreenshots(dialog, "settings-models");
        QVERIFY(list->item(0)->text().startsWith(
            QString::fromUtf8("ggml-base.en.bin \u2014 speech model")));
        QVERIFY(list->item(1)->text().startsWith(
            QString::fromUtf8("small.gguf \u2014 language model")));
        auto* remove = control<QPushButton>(dialog, "removeModel");
        QVERIFY(!remove->isEnabled() &&
                !control<QProgressBar>(dialog, "modelCopyProgress")->isVisibleTo(&dialog));
        list->setCurrentRow(1);
        remove->click();
        auto* confirm = dialog.findChild<QMessageBox*>("confirmRemoveModel");
        QVERIFY(confirm);
        QCOMPARE(confirm->text(),
                 QString::fromUtf8("Remove \u201csmall.gguf\u201d from this computer?"));
        QVERIFY(std::filesystem::exists(store.folder / "Models" / "small.gguf"));
        for (auto* button : confirm->buttons())
            if (confirm->buttonRole(button) == QMessageBox::DestructiveRole) button->click();
        QVERIFY(!std::filesystem::exists(store.folder / "Models" / "small.gguf"));
        QCOMPARE(list->count(), 1);
        // The folder's speech model is the engine now, with its languages.
        QCOMPARE(control<QLabel>(dialog, "transcriptionEngines")->text(),
                 QString("Speech engines: whisper (English); pocketsphinx (English (United "
                         "States))"));
        QCOMPARE(control<QComboBox>(dialog, "transcriptionLanguage")->itemData(1).toString(),
                 QString("en"));
    }

    void changesMadeElsewhereShowInTheOpenWindow() {
        Store store;
        SettingsDialog dialog(store.preferences);
        store.preferences.setSnapToZeroCrossings(false);
        store.preferences.setCanvasTheme(CanvasThemeID::ember);
        store.preferences.setCustomLoudnessTarget(-19.0);
        QVERIFY(!control<QCheckBox>(dialog, "snapToZeroCrossings")->isChecked());
        QCOMPARE(control<QComboBox>(dialog, "canvasTheme")->currentData().toString(),
                 QString("ember"));
        QVERIFY(control<QCheckBox>(dialog, "usesCustomLoudnessTarget")->isChecked());
        QCOMPARE(control<QDoubleSpinBox>(dialog, "customLoudnessTarget")->value(), -19.0);
        // Showing them wrote nothing back over them.
        const auto stored = store.reread();
        QVERIFY(!stored->snapToZeroCrossings());
        QCOMPARE(stored->customLoudnessTarget(), std::optional<double>(-19.0));
    }

    void storedValuesAreShownWhenTheWindowOpens() {
        Store store;
        store.preferences.setRecordingFormat(RecordingFormat::wav16);
        store.preferences.setShowsAIFeatures(false);
        store.preferences.setTranscriptionLanguage("xx-YY");
        store.preferences.setLaunchSession(Preferences::LaunchSession::empty);
        SettingsDialog dialog(store.preferences);
        QCOMPARE(control<QComboBox>(dialog, "recordingFormat")->currentText(),
                 QString("WAV 16-bit"));
        QVERIFY(!control<QCheckBox>(dialog, "showsAIFeatures")->isChecked());
        // An identifier Sonvale doesn't list is shown as it stands, not replaced.
        QCOMPARE(control<QComboBox>(dialog, "transcriptionLanguage")->currentData().toString(),
                 QString("xx-YY"));
        QCOMPARE(control<QComboBox>(dialog, "launchSession")->currentText(),
                 QString("An empty session"));
    }
};

QTEST_MAIN(SettingsTests)
#include "SettingsTests.moc"
