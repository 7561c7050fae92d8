#pragma once

#include "engine/AudioInputDevice.h"
#include "transcription/Transcriber.h"

#include <QDialog>
#include <sigc++/connection.h>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QDoubleSpinBox;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;

namespace sonvale {

class EditorModel;
class Preferences;

// The Settings window: every preference, written through the moment a control changes.
// Changes made elsewhere while it is open show in its controls. Main thread only.
//
// Controls carry object names after their preference ("canvasTheme", "snapToZeroCrossings",
// "recordingsFolder" ...), so that tests and accessibility tools can find them.
class SettingsDialog : public QDialog {
    Q_OBJECT
public:
    explicit SettingsDialog(Preferences& preferences, QWidget* parent = nullptr);
    ~SettingsDialog() override;

    // Replaces the choices of the input device menu (the devices PortAudio finds are listed
    // when the Recording page is first shown). A chosen device that is not among them stays
    // listed as not connected.
    void setInputDevices(std::vector<AudioInputDevice> devices);
    // The languages the installed speech engines offer, besides "Automatic", and a line that
    // names the engines. A chosen language they don't offer stays listed as it stands.
    void setTranscriptionLanguages(TranscriptionLanguages languages, const QString& engines);
    // Lists the models folder's files on the Transcription page, with Add Model… (copied in
    // with progress) and Remove.
    void showModels(EditorModel& model);

private:
    QWidget* makeGeneralPage();
    QWidget* makeWaveformPage();
    QWidget* makeEditingPage();
    QWidget* makeRecordingPage();
    QWidget* makeTranscriptionPage();
    void chooseRecordingsFolder();
    // Shows the preferences' current values without writing anything back.
    void refresh();
    void refreshInputDevices();
    void refreshLanguages();
    void refreshModels();
    void chooseModelFile();

    Preferences& preferences;
    sigc::connection preferencesConnection;
    std::vector<AudioInputDevice> inputDevices;
    bool inputDevicesListed = false;

    QComboBox* launchSession = nullptr;
    QComboBox* canvasTheme = nullptr;
    QCheckBox* followsSystemAppearance = nullptr;
    QComboBox* lightCanvasTheme = nullptr;
    QComboBox* darkCanvasTheme = nullptr;
    QComboBox* spectrogramFFTSize = nullptr;
    QComboBox* spectrogramColorMap = nullptr;
    QCheckBox* spectrogramLogFrequency = nullptr;
    QCheckBox* snapToZeroCrossings = nullptr;
    QCheckBox* usesCustomLoudnessTarget = nullptr;
    QDoubleSpinBox* customLoudnessTarget = nullptr;
    QLineEdit* recordingsFolder = nullptr;
    QPushButton* chooseFolderButton = nullptr;
    QPushButton* defaultFolderButton = nullptr;
    QComboBox* recordingFormat = nullptr;
    QComboBox* inputDevice = nullptr;
    QComboBox* transcriptionLanguage = nullptr;
    QLabel* transcriptionEngines = nullptr;
    TranscriptionLanguages languages;
    QCheckBox* showsAIFeatures = nullptr;
    EditorModel* editor = nullptr;
    sigc::connection modelsConnection;
    QWidget* modelsBox = nullptr;
    QListWidget* installedModels = nullptr;
    QPushButton* removeModelButton = nullptr;
    QPushButton* addModelButton = nullptr;
    QProgressBar* modelCopyBar = nullptr;
    QPushButton* cancelCopyButton = nullptr;
};

} // namespace sonvale
