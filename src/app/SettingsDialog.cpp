#include "app/SettingsDialog.h"

#include "app/SpectrogramControls.h"

#include "app/Features.h"
#include "editor/EditorModel.h"
#include "persistence/Preferences.h"

#include <algorithm>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTabWidget>
#include <QVBoxLayout>
#include <array>
#include <cmath>

namespace sonvale {

namespace {

QString themeTitle(CanvasThemeID theme) {
    switch (theme) {
    case CanvasThemeID::nativeDark: return "System Dark";
    case CanvasThemeID::nativeLight: return "System Light";
    case CanvasThemeID::classic: return "Classic";
    case CanvasThemeID::graphite: return "Graphite";
    case CanvasThemeID::midnight: return "Midnight";
    case CanvasThemeID::paper: return "Paper";
    case CanvasThemeID::ocean: return "Ocean";
    case CanvasThemeID::forest: return "Forest";
    case CanvasThemeID::ember: return "Ember";
    case CanvasThemeID::amber: return "Amber";
    case CanvasThemeID::rose: return "Rose";
    case CanvasThemeID::slate: return "Slate";
    case CanvasThemeID::highContrast: return "High Contrast";
    }
    return "Classic";
}

QComboBox* makeThemeMenu(const QString& name) {
    auto* menu = new QComboBox;
    menu->setObjectName(name);
    for (const auto& [theme, raw] : canvasThemeNames)
        menu->addItem(themeTitle(theme), QString::fromUtf8(raw.data(), qsizetype(raw.size())));
    return menu;
}

void showTheme(QComboBox* menu, CanvasThemeID theme) {
    const QSignalBlocker blocker(menu);
    const auto raw = rawValue(theme);
    menu->setCurrentIndex(menu->findData(QString::fromUtf8(raw.data(), qsizetype(raw.size()))));
}

CanvasThemeID chosenTheme(const QComboBox* menu) {
    return canvasThemeFromRawValue(menu->currentData().toString().toStdString())
        .value_or(CanvasThemeID::classic);
}

QLabel* makeNote(const QString& text) {
    auto* note = new QLabel(text);
    note->setWordWrap(true);
    // Secondary text: the window text, dimmed, and a little smaller.
    QPalette palette = note->palette();
    QColor colour = palette.color(QPalette::WindowText);
    colour.setAlphaF(0.7f);
    palette.setColor(QPalette::WindowText, colour);
    note->setPalette(palette);
    QFont font = note->font();
    font.setPointSizeF(font.pointSizeF() * 0.92);
    note->setFont(font);
    return note;
}

QString languageTitle(const QString& identifier) {
    QString localeName = identifier;
    localeName.replace('-', '_');
    const QLocale locale(localeName);
    if (locale.language() == QLocale::C) return identifier;
    QString title = QLocale::languageToString(locale.language());
    if (identifier.contains('-'))
        title += " (" + QLocale::territoryToString(locale.territory()) + ")";
    return title;
}

constexpr double defaultCustomTarget = -18.0; // LUFS, a common target between the presets

} // namespace

SettingsDialog::SettingsDialog(Preferences& preferences, QWidget* parent)
    : QDialog(parent)
    , preferences(preferences) {
    setWindowTitle("Settings");
    setObjectName("settings");

    auto* tabs = new QTabWidget;
    tabs->setObjectName("settingsTabs");
    tabs->addTab(makeGeneralPage(), "General");
    tabs->addTab(makeWaveformPage(), "Waveform");
    tabs->addTab(makeEditingPage(), "Editing");
    QWidget* recordingPage = makeRecordingPage();
    tabs->addTab(recordingPage, "Recording");
    QWidget* transcriptionPage = makeTranscriptionPage();
    tabs->addTab(transcriptionPage, "Transcription");
    tabs->setTabVisible(tabs->indexOf(recordingPage), features::recording);
    tabs->setTabVisible(tabs->indexOf(transcriptionPage), features::transcription);

    // Settings apply as they change; the one button only closes the window.
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs);
    setMinimumWidth(560); // room for a recordings folder path
    layout->addWidget(buttons);

    // Probing the hardware takes a moment and wakes every sound device: only when the page
    // with the input menu is first shown.
    connect(tabs, &QTabWidget::currentChanged, this, [this, tabs, recordingPage] {
        if (tabs->currentWidget() == recordingPage && !inputDevicesListed)
            setInputDevices(audioInputDevices());
    });
    refresh();
    preferencesConnection =
        preferences.changed.connect([this](Preferences::Setting) { refresh(); });
}

SettingsDialog::~SettingsDialog() {
    preferencesConnection.disconnect();
    modelsConnection.disconnect();
}

QWidget* SettingsDialog::makeGeneralPage() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);

    launchSession = new QComboBox;
    launchSession->setObjectName("launchSession");
    launchSession->addItem("The last session", "lastSession");
    launchSession->addItem("An empty session", "empty");
    connect(launchSession, &QComboBox::currentIndexChanged, this, [this] {
        preferences.setLaunchSession(launchSession->currentData().toString() == "empty"
                                         ? Preferences::LaunchSession::empty
                                         : Preferences::LaunchSession::lastSession);
    });
    form->addRow("When Sonvale starts, open:", launchSession);
    form->addRow(makeNote(
        "The session is the list of tracks with their gain, markers, selection and zoom. If a "
        "saved session (File \u203a Save Session) was open, that one is reopened. Hold Shift "
        "while Sonvale starts for an incognito session: it starts empty and isn't saved."));
    return page;
}

QWidget* SettingsDialog::makeWaveformPage() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);

    canvasTheme = makeThemeMenu("canvasTheme");
    connect(canvasTheme, &QComboBox::currentIndexChanged, this,
            [this] { preferences.setCanvasTheme(chosenTheme(canvasTheme)); });
    form->addRow("Theme:", canvasTheme);

    followsSystemAppearance = new QCheckBox("Follow the system's light and dark appearance");
    followsSystemAppearance->setObjectName("followsSystemAppearance");
    connect(followsSystemAppearance, &QCheckBox::toggled, this,
            [this](bool on) { preferences.setFollowsSystemAppearance(on); });
    form->addRow(followsSystemAppearance);

    lightCanvasTheme = makeThemeMenu("lightCanvasTheme");
    connect(lightCanvasTheme, &QComboBox::currentIndexChanged, this,
            [this] { preferences.setLightCanvasTheme(chosenTheme(lightCanvasTheme)); });
    form->addRow("Light appearance:", lightCanvasTheme);

    darkCanvasTheme = makeThemeMenu("darkCanvasTheme");
    connect(darkCanvasTheme, &QComboBox::currentIndexChanged, this,
            [this] { preferences.setDarkCanvasTheme(chosenTheme(darkCanvasTheme)); });
    form->addRow("Dark appearance:", darkCanvasTheme);

    auto* spectrogramTitle = new QLabel("<b>Spectrogram</b>");
    form->addRow(spectrogramTitle);

    auto* spectrogram = new SpectrogramControls(preferences, this);
    spectrogramFFTSize = spectrogram->fftSize;
    spectrogramColorMap = spectrogram->colorMap;
    spectrogramLogFrequency = spectrogram->logFrequency;
    form->addRow("FFT size:", spectrogramFFTSize);
    form->addRow("Colours:", spectrogramColorMap);
    form->addRow(spectrogramLogFrequency);
    for (QWidget* row :
         {static_cast<QWidget*>(spectrogramTitle), static_cast<QWidget*>(spectrogramFFTSize),
          static_cast<QWidget*>(spectrogramColorMap),
          static_cast<QWidget*>(spectrogramLogFrequency)})
        form->setRowVisible(row, features::spectrogram);
    return page;
}

QWidget* SettingsDialog::makeEditingPage() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);

    snapToZeroCrossings = new QCheckBox("Snap selection edges to zero crossings");
    snapToZeroCrossings->setObjectName("snapToZeroCrossings");
    connect(snapToZeroCrossings, &QCheckBox::toggled, this,
            [this](bool on) { preferences.setSnapToZeroCrossings(on); });
    form->addRow(snapToZeroCrossings);
    form->addRow(makeNote("Edits made at zero crossings don't click."));

    usesCustomLoudnessTarget = new QCheckBox("Custom loudness target:");
    usesCustomLoudnessTarget->setObjectName("usesCustomLoudnessTarget");
    customLoudnessTarget = new QDoubleSpinBox;
    customLoudnessTarget->setObjectName("customLoudnessTarget");
    customLoudnessTarget->setRange(-70.0, 0.0);
    customLoudnessTarget->setDecimals(1);
    customLoudnessTarget->setSingleStep(0.5);
    customLoudnessTarget->setSuffix(" LUFS");
    customLoudnessTarget->setValue(defaultCustomTarget);
    connect(usesCustomLoudnessTarget, &QCheckBox::toggled, this, [this](bool on) {
        preferences.setCustomLoudnessTarget(on ? std::optional(customLoudnessTarget->value())
                                               : std::nullopt);
    });
    connect(customLoudnessTarget, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        if (usesCustomLoudnessTarget->isChecked()) preferences.setCustomLoudnessTarget(value);
    });
    form->addRow(usesCustomLoudnessTarget, customLoudnessTarget);
    form->addRow(makeNote("Offered in the normalize menu beside -14, -16 and -23 LUFS."));
    return page;
}

QWidget* SettingsDialog::makeRecordingPage() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);

    recordingsFolder = new QLineEdit;
    recordingsFolder->setObjectName("recordingsFolder");
    recordingsFolder->setReadOnly(true);
    chooseFolderButton = new QPushButton("Choose\u2026");
    chooseFolderButton->setObjectName("chooseRecordingsFolder");
    connect(chooseFolderButton, &QPushButton::clicked, this,
            &SettingsDialog::chooseRecordingsFolder);
    defaultFolderButton = new QPushButton("Use Default");
    defaultFolderButton->setObjectName("useDefaultRecordingsFolder");
    defaultFolderButton->setToolTip(
        QString::fromStdString("Record into " + Preferences::defaultRecordingsFolder().string()));
    connect(defaultFolderButton, &QPushButton::clicked, this,
            [this] { preferences.setRecordingsFolderPath(std::nullopt); });
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(recordingsFolder, 1);
    folderRow->addWidget(chooseFolderButton);
    folderRow->addWidget(defaultFolderButton);
    form->addRow("Recordings folder:", folderRow);
    form->addRow(makeNote("Recordings and new tracks made from a selection are saved here."));

    recordingFormat = new QComboBox;
    recordingFormat->setObjectName("recordingFormat");
    recordingFormat->addItem("WAV 16-bit", int(RecordingFormat::wav16));
    recordingFormat->addItem("WAV 24-bit", int(RecordingFormat::wav24));
    recordingFormat->addItem("WAV 32-bit float", int(RecordingFormat::wav32Float));
    connect(recordingFormat, &QComboBox::currentIndexChanged, this, [this] {
        preferences.setRecordingFormat(RecordingFormat(recordingFormat->currentData().toInt()));
    });
    form->addRow("Format:", recordingFormat);

    inputDevice = new QComboBox;
    inputDevice->setObjectName("inputDevice");
    connect(inputDevice, &QComboBox::currentIndexChanged, this, [this] {
        const QVariant uid = inputDevice->currentData();
        preferences.setInputDeviceUID(uid.isNull() ? std::nullopt
                                                   : std::optional(uid.toString().toStdString()));
    });
    form->addRow("Input:", inputDevice);
    return page;
}

QWidget* SettingsDialog::makeTranscriptionPage() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);

    transcriptionLanguage = new QComboBox;
    transcriptionLanguage->setObjectName("transcriptionLanguage");
    connect(transcriptionLanguage, &QComboBox::currentIndexChanged, this, [this] {
        const QVariant identifier = transcriptionLanguage->currentData();
        preferences.setTranscriptionLanguage(
            identifier.isNull() ? std::nullopt
                                : std::optional(identifier.toString().toStdString()));
    });
    form->addRow("Language:", transcriptionLanguage);
    transcriptionEngines = makeNote({});
    transcriptionEngines->setObjectName("transcriptionEngines");
    form->addRow(transcriptionEngines);
    form->addRow(makeNote("Transcription runs on your computer. Nothing is uploaded."));

    modelsBox = new QWidget;
    auto* models = new QVBoxLayout(modelsBox);
    models->setContentsMargins(0, 0, 0, 0);
    installedModels = new QListWidget;
    installedModels->setObjectName("installedModels");
    installedModels->setMaximumHeight(110);
    connect(installedModels, &QListWidget::currentRowChanged, this,
            [this] { removeModelButton->setEnabled(installedModels->currentItem() != nullptr); });
    models->addWidget(installedModels);
    auto* modelButtons = new QHBoxLayout;
    addModelButton = new QPushButton(QString::fromUtf8("Add Model\u2026"));
    addModelButton->setObjectName("addModel");
    connect(addModelButton, &QPushButton::clicked, this, [this] { chooseModelFile(); });
    removeModelButton = new QPushButton("Remove");
    removeModelButton->setObjectName("removeModel");
    connect(removeModelButton, &QPushButton::clicked, this, [this] {
        auto* item = installedModels->currentItem();
        if (!item || !editor) return;
        const QString file = item->data(Qt::UserRole).toString();
        auto* confirm = new QMessageBox(
            QMessageBox::Question, "Remove Model",
            QString("Remove “%1” from this computer?").arg(QFileInfo(file).fileName()),
            QMessageBox::Cancel, this);
        confirm->setObjectName("confirmRemoveModel");
        confirm->setAttribute(Qt::WA_DeleteOnClose);
        confirm->addButton("Remove", QMessageBox::DestructiveRole);
        connect(confirm, &QMessageBox::buttonClicked, this, [this, confirm, file](auto* button) {
            if (confirm->buttonRole(button) == QMessageBox::DestructiveRole && editor)
                editor->removeModel(file.toStdString());
        });
        confirm->open();
    });
    modelCopyBar = new QProgressBar;
    modelCopyBar->setObjectName("modelCopyProgress");
    modelCopyBar->setRange(0, 1000);
    cancelCopyButton = new QPushButton("Cancel");
    cancelCopyButton->setObjectName("cancelModelCopy");
    connect(cancelCopyButton, &QPushButton::clicked, this, [this] {
        if (editor) editor->cancelModelCopy();
    });
    modelButtons->addWidget(addModelButton);
    modelButtons->addWidget(removeModelButton);
    modelButtons->addWidget(modelCopyBar, 1);
    modelButtons->addWidget(cancelCopyButton);
    modelButtons->addStretch();
    models->addLayout(modelButtons);
    models->addWidget(
        makeNote("Speech models (ggml-NAME.bin, for whisper) and language models (.gguf) run on "
                 "your computer. Add the files you have downloaded."));
    form->addRow("Models:", modelsBox);
    modelsBox->setEnabled(false);

    showsAIFeatures = new QCheckBox("Show AI features");
    showsAIFeatures->setObjectName("showsAIFeatures");
    connect(showsAIFeatures, &QCheckBox::toggled, this,
            [this](bool on) { preferences.setShowsAIFeatures(on); });
    form->addRow(showsAIFeatures);
    form->addRow(makeNote("Suggest Title & Summary and Create Regions from Topics use the "
                          "on-device language model; nothing leaves the computer."));
    return page;
}

void SettingsDialog::showModels(EditorModel& model) {
    editor = &model;
    modelsConnection = model.modelsChanged.connect([this] {
        refreshModels();
        // A speech model added or removed changes the engines and their languages.
        if (!editor->modelCopyProgress())
            setTranscriptionLanguages(
                editor->transcriber().languages(),
                QString::fromStdString(editor->transcriber().engineSummary()));
    });
    modelsBox->setEnabled(true);
    refreshModels();
}

void SettingsDialog::refreshModels() {
    if (!editor) return;
    const QString current = installedModels->currentItem()
                                ? installedModels->currentItem()->data(Qt::UserRole).toString()
                                : QString();
    installedModels->clear();
    const ModelFolder& folder = editor->modelFolder();
    for (auto kind : {ModelFolder::Kind::speech, ModelFolder::Kind::language}) {
        const auto files = folder.files(kind);
        for (size_t i = 0; i < files.size(); ++i) {
            std::error_code error;
            const double size = double(std::filesystem::file_size(files[i], error));
            QString text = QString("%1 \u2014 %2 model, %3")
                               .arg(QString::fromStdString(files[i].filename().string()),
                                    kind == ModelFolder::Kind::speech ? "speech" : "language",
                                    QLocale().formattedDataSize(qint64(size)));
            if (i == 0 && files.size() > 1) text += " (in use)";
            auto* item = new QListWidgetItem(text, installedModels);
            item->setData(Qt::UserRole, QString::fromStdString(files[i].string()));
            if (item->data(Qt::UserRole).toString() == current)
                installedModels->setCurrentItem(item);
        }
    }
    if (installedModels->count() == 0) {
        auto* none = new QListWidgetItem("No models are installed.", installedModels);
        none->setFlags(Qt::NoItemFlags);
    }
    removeModelButton->setEnabled(installedModels->currentItem() != nullptr);
    const auto copy = editor->modelCopyProgress();
    modelCopyBar->setVisible(copy.has_value());
    cancelCopyButton->setVisible(copy.has_value());
    addModelButton->setEnabled(!copy);
    if (copy) modelCopyBar->setValue(int(std::lround(*copy * 1000)));
}

void SettingsDialog::chooseModelFile() {
    auto* chooser = new QFileDialog(this, "Add a Model");
    chooser->setObjectName("modelChooser");
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    chooser->setFileMode(QFileDialog::ExistingFile);
    chooser->setNameFilters({"Model files (*.gguf ggml-*.bin)", "All files (*)"});
    chooser->setLabelText(QFileDialog::Accept, "Add");
    connect(chooser, &QFileDialog::fileSelected, this, [this](const QString& file) {
        if (!file.isEmpty() && editor) editor->addModel(file.toStdString());
    });
    chooser->open();
}

void SettingsDialog::chooseRecordingsFolder() {
    auto* chooser = new QFileDialog(this, "Choose a Folder for Recordings");
    chooser->setObjectName("recordingsFolderChooser");
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    chooser->setFileMode(QFileDialog::Directory);
    chooser->setOption(QFileDialog::ShowDirsOnly);
    chooser->setAcceptMode(QFileDialog::AcceptOpen);
    chooser->setLabelText(QFileDialog::Accept, "Choose");
    const auto current = preferences.recordingsFolder();
    std::error_code error;
    chooser->setDirectory(QString::fromStdString(std::filesystem::is_directory(current, error)
                                                     ? current.string()
                                                     : current.parent_path().string()));
    connect(chooser, &QFileDialog::fileSelected, this, [this](const QString& folder) {
        if (!folder.isEmpty()) preferences.setRecordingsFolderPath(folder.toStdString());
    });
    chooser->open();
}

void SettingsDialog::setInputDevices(std::vector<AudioInputDevice> devices) {
    inputDevices = std::move(devices);
    inputDevicesListed = true;
    refreshInputDevices();
}

void SettingsDialog::setTranscriptionLanguages(TranscriptionLanguages offered,
                                               const QString& engines) {
    languages = std::move(offered);
    transcriptionEngines->setText(engines);
    refreshLanguages();
}

void SettingsDialog::refresh() {
    {
        const QSignalBlocker blocker(launchSession);
        launchSession->setCurrentIndex(
            preferences.launchSession() == Preferences::LaunchSession::empty ? 1 : 0);
    }
    const bool follows = preferences.followsSystemAppearance();
    showTheme(canvasTheme, preferences.canvasTheme());
    showTheme(lightCanvasTheme, preferences.lightCanvasTheme());
    showTheme(darkCanvasTheme, preferences.darkCanvasTheme());
    {
        const QSignalBlocker blocker(followsSystemAppearance);
        followsSystemAppearance->setChecked(follows);
    }
    // One theme, or one for each appearance: only the menus in use are enabled.
    canvasTheme->setEnabled(!follows);
    lightCanvasTheme->setEnabled(follows);
    darkCanvasTheme->setEnabled(follows);

    {
        const QSignalBlocker blocker(snapToZeroCrossings);
        snapToZeroCrossings->setChecked(preferences.snapToZeroCrossings());
    }
    {
        const QSignalBlocker checkBlocker(usesCustomLoudnessTarget);
        const QSignalBlocker valueBlocker(customLoudnessTarget);
        const auto target = preferences.customLoudnessTarget();
        usesCustomLoudnessTarget->setChecked(target.has_value());
        if (target) customLoudnessTarget->setValue(*target);
        customLoudnessTarget->setEnabled(target.has_value());
    }

    recordingsFolder->setText(QString::fromStdString(preferences.recordingsFolder().string()));
    defaultFolderButton->setEnabled(preferences.recordingsFolderPath().has_value());
    {
        const QSignalBlocker blocker(recordingFormat);
        recordingFormat->setCurrentIndex(
            recordingFormat->findData(int(preferences.recordingFormat())));
    }
    refreshInputDevices();
    refreshLanguages();
    {
        const QSignalBlocker blocker(showsAIFeatures);
        showsAIFeatures->setChecked(preferences.showsAIFeatures());
    }
}

void SettingsDialog::refreshInputDevices() {
    const QSignalBlocker blocker(inputDevice);
    inputDevice->clear();
    inputDevice->addItem("System default"); // no data: no device chosen
    for (const auto& device : inputDevices)
        inputDevice->addItem(QString::fromStdString(device.name),
                             QString::fromStdString(device.uid));
    const auto& chosen = preferences.inputDeviceUID();
    if (!chosen) {
        inputDevice->setCurrentIndex(0);
        return;
    }
    const QString uid = QString::fromStdString(*chosen);
    int index = inputDevice->findData(uid);
    if (index < 0) {
        // Kept as chosen while it is unplugged; recording falls back to the default meanwhile.
        inputDevice->addItem(uid + " (not connected)", uid);
        index = inputDevice->count() - 1;
    }
    inputDevice->setCurrentIndex(index);
}

void SettingsDialog::refreshLanguages() {
    const QSignalBlocker blocker(transcriptionLanguage);
    transcriptionLanguage->clear();
    // No data: the engines choose.
    transcriptionLanguage->addItem(
        languages.automatic
            ? "Automatic (" + languageTitle(QString::fromStdString(*languages.automatic)) + ")"
            : QString("Automatic"));
    // Whisper knows a hundred languages: they are listed by name.
    std::vector<std::pair<QString, QString>> offered;
    for (const std::string& id : languages.identifiers) {
        const QString identifier = QString::fromStdString(id);
        offered.emplace_back(languageTitle(identifier), identifier);
    }
    std::sort(offered.begin(), offered.end(), [](const auto& a, const auto& b) {
        return QString::localeAwareCompare(a.first, b.first) < 0;
    });
    for (const auto& [title, identifier] : offered)
        transcriptionLanguage->addItem(title, identifier);
    const auto& chosen = preferences.transcriptionLanguage();
    if (!chosen) {
        transcriptionLanguage->setCurrentIndex(0);
        return;
    }
    const QString identifier = QString::fromStdString(*chosen);
    int index = transcriptionLanguage->findData(identifier);
    if (index < 0) {
        transcriptionLanguage->addItem(languageTitle(identifier), identifier);
        index = transcriptionLanguage->count() - 1;
    }
    transcriptionLanguage->setCurrentIndex(index);
}

} // namespace sonvale
