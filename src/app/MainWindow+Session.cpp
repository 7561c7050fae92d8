#include "app/MainWindow.h"

#include "app/QtText.h"
#include "app/SnapshotsDialog.h"
#include "app/canvas/WaveformCanvas.h"
#include "editor/EditorModel.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>

// The window's session commands: saving, opening, reverting, snapshots, the questions asked
// before anything is closed that would lose an edit, and locating missing files.

namespace sonvale {

namespace {

bool isBundle(const QString& path) { return EditorModel::isSessionDocument(path.toStdString()); }

// Where session dialogs start without an open document: Documents, else home.
QString defaultSessionFolder() {
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return QFileInfo(documents).isDir() ? documents : QDir::homePath();
}

// A file dialog for session bundles. A bundle is a folder, which a file dialog would open
// rather than choose; here double-clicking one, or naming one and confirming, chooses it
// (saving over an existing one asks first). `onChosen` receives the file or folder chosen.
class BundleDialog : public QFileDialog {
public:
    BundleDialog(QWidget* parent, const QString& caption, bool saving)
        : QFileDialog(parent, caption) {
        setOption(QFileDialog::DontUseNativeDialog);
        setAttribute(Qt::WA_DeleteOnClose);
        setNameFilter("Sonvale sessions (*.sonvale)");
        if (saving) {
            setAcceptMode(QFileDialog::AcceptSave);
            setDefaultSuffix("sonvale");
            setLabelText(QFileDialog::Accept, "Save");
        } else {
            setFileMode(QFileDialog::Directory);
            setOption(QFileDialog::ShowDirsOnly);
            setLabelText(QFileDialog::Accept, "Open");
        }
        connect(this, &QFileDialog::directoryEntered, this, [this, saving](const QString& folder) {
            if (!isBundle(folder)) return;
            // Out of the bundle again, once the dialog has finished entering it.
            QTimer::singleShot(0, this, [this, saving, folder] {
                const QFileInfo bundle(folder);
                setDirectory(bundle.absolutePath());
                if (saving)
                    selectFile(bundle.fileName());
                else
                    choose(bundle.absoluteFilePath());
            });
        });
        connect(this, &QFileDialog::fileSelected, this, [this](const QString& file) {
            if (onChosen) onChosen(file);
        });
    }

    std::function<void(const QString&)> onChosen;

protected:
    void accept() override {
        const QString chosen = selectedFiles().value(0);
        const QFileInfo info(chosen);
        if (!isBundle(chosen) || !info.isDir()) {
            QFileDialog::accept();
            return;
        }
        if (acceptMode() == AcceptSave) {
            QMessageBox question(
                QMessageBox::Warning, windowTitle(),
                QString::fromUtf8("\u201C%1\u201D already exists. Do you want to replace it?")
                    .arg(info.fileName()),
                QMessageBox::Cancel, this);
            question.setInformativeText("Replacing it overwrites the session saved there.");
            QPushButton* replace = question.addButton("Replace", QMessageBox::DestructiveRole);
            question.exec();
            if (question.clickedButton() != replace) return;
        }
        choose(info.absoluteFilePath());
    }

private:
    void choose(const QString& bundle) {
        QDialog::accept();
        if (onChosen) onChosen(bundle);
    }
};

} // namespace

// ---- sessions ---------------------------------------------------------------------------------

void MainWindow::refreshTitle() {
    // The file the editor shows, then the session: "take.wav — Untitled Session".
    QString title = qs(model.documentName()) + "[*]";
    if (auto track = model.activeTrack(); track && !model.isShowingTimeline())
        title = QString::fromStdString(track->url().filename().string()) +
                QString::fromUtf8(" \u2014 ") + title;
    setWindowTitle(title);
    setWindowModified(model.needsSaving());
}

void MainWindow::askToRemoveTracks(const TrackRemovalQuestion& question) {
    if (currentQuestion) return;
    auto* box = new QMessageBox(this);
    box->setObjectName("sessionQuestion");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Question);
    box->setWindowTitle(qs(question.title));
    box->setText(qs(question.title));
    box->setInformativeText(qs(question.message));
    QPushButton* remove =
        box->addButton(TrackRemovalQuestion::removeClipsTitle, QMessageBox::DestructiveRole);
    QPushButton* keep =
        box->addButton(TrackRemovalQuestion::keepClipsTitle, QMessageBox::AcceptRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(keep);
    currentQuestion = box;
    connect(box, &QMessageBox::finished, this, [this, box, remove, keep, ids = question.ids] {
        currentQuestion = nullptr;
        if (box->clickedButton() == remove || box->clickedButton() == keep)
            model.removeTracks(ids, box->clickedButton() == remove);
    });
    box->open();
}

void MainWindow::askAboutClipping(const ClippingQuestion& question) {
    if (currentQuestion) return;
    auto* box = new QMessageBox(this);
    box->setObjectName("clippingQuestion");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(qs(question.title));
    box->setText(qs(question.title));
    box->setInformativeText(qs(question.message));
    QPushButton* limit = box->addButton(ClippingQuestion::limitTitle, QMessageBox::AcceptRole);
    limit->setObjectName("limitPeaks");
    QPushButton* clean = box->addButton(qs(question.cleanTitle), QMessageBox::AcceptRole);
    clean->setObjectName("stopAtCleanGain");
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(limit);
    currentQuestion = box;
    connect(box, &QMessageBox::finished, this, [this, box, limit, clean, question] {
        currentQuestion = nullptr;
        if (box->clickedButton() == limit) model.limitPeaksForLoudness(question);
        if (box->clickedButton() == clean) model.normalizePeak();
    });
    box->open();
}

void MainWindow::askToLeaveSession(bool quitting, std::function<void()> proceed) {
    if (currentQuestion) return;
    const bool hasDocument = model.document().has_value();
    auto* box = new QMessageBox(this);
    box->setObjectName("sessionQuestion");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(qs(model.documentName()));
    if (hasDocument) {
        box->setText(QString::fromUtf8("Do you want to save the changes to \u201C%1\u201D?")
                         .arg(qs(model.documentName())));
        box->setInformativeText("Your changes will be lost if you don't save them.");
    } else {
        box->setText("Do you want to save this session?");
        box->setInformativeText("Edits that weren't exported or saved in a session will be lost. "
                                "Saving keeps them, with a copy of the audio.");
    }
    QPushButton* save = box->addButton(QMessageBox::Save);
    QPushButton* discard =
        box->addButton(quitting && !hasDocument ? "Quit Without Saving Session" : "Don't Save",
                       QMessageBox::DestructiveRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(save);
    currentQuestion = box;
    connect(box, &QMessageBox::finished, this, [this, box, save, discard, quitting, proceed] {
        currentQuestion = nullptr;
        if (box->clickedButton() == discard) {
            confirmKeepingNewFiles(proceed);
        } else if (box->clickedButton() == save) {
            // Edits made while the save ran are asked about again.
            QPointer<MainWindow> self(this);
            saveSession([self, quitting, proceed] {
                if (!self) return;
                if (self->model.needsSaving())
                    self->askToLeaveSession(quitting, proceed);
                else
                    proceed();
            });
        }
    });
    box->open();
}

// Files made for the document since it was saved (recordings, new tracks) would drop out of
// the session it goes back to: ask whether to keep them where they are or move them to the
// Trash. A file that can't be moved stops there, so nothing goes without the person knowing.
void MainWindow::confirmKeepingNewFiles(std::function<void()> proceed) {
    const auto files =
        model.document() ? model.newFilesNotInSavedSession() : std::vector<std::filesystem::path>{};
    if (files.empty()) {
        proceed();
        return;
    }
    const AppAlert question = EditorModel::keepNewFilesQuestion(files);
    auto* box = new QMessageBox(QMessageBox::Question, qs(question.title), qs(question.title),
                                QMessageBox::NoButton, this);
    box->setObjectName("keepNewFilesQuestion");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(qs(question.message));
    QPushButton* keep =
        box->addButton(files.size() == 1 ? "Keep File" : "Keep Files", QMessageBox::AcceptRole);
    QPushButton* trash = box->addButton("Move to Trash", QMessageBox::DestructiveRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(keep);
    connect(box, &QMessageBox::finished, this, [this, box, keep, trash, files, proceed] {
        if (box->clickedButton() == keep) {
            proceed();
        } else if (box->clickedButton() == trash) {
            // The Trash lives in the data folder, which may not exist yet on a fresh account.
            QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
            for (const auto& file : files) {
                QFile moving(qs(file.string()));
                if (moving.exists() && !moving.moveToTrash()) {
                    model.showAlert({"Couldn't move to the Trash",
                                     "\u201C" + file.filename().string() +
                                         "\u201D: " + moving.errorString().toStdString()});
                    return;
                }
            }
            proceed();
        }
    });
    box->open();
}

void MainWindow::saveSession(std::function<void()> then) {
    if (model.isSavingDocument()) return;
    if (model.document())
        model.saveDocument(std::move(then));
    else
        presentSaveSessionDialog(std::move(then));
}

void MainWindow::presentSaveSessionDialog(std::function<void()> then) {
    if (currentSessionDialog || model.isSavingDocument()) return;
    auto* dialog = new BundleDialog(this, "Save Session", true);
    dialog->setObjectName("saveSessionDialog");
    const auto& document = model.document();
    dialog->setDirectory(document ? qs(document->url.parent_path().string())
                                  : defaultSessionFolder());
    dialog->selectFile(qs(model.documentName()) + ".sonvale");
    dialog->onChosen = [this, then](const QString& file) {
        model.saveDocumentAs(file.toStdString(), then);
    };
    currentSessionDialog = dialog;
    connect(dialog, &QDialog::finished, this, [this] { currentSessionDialog = nullptr; });
    dialog->open();
}

void MainWindow::presentOpenSessionDialog() {
    if (currentSessionDialog) return;
    auto* dialog = new BundleDialog(this, "Open Session", false);
    dialog->setObjectName("openSessionDialog");
    const auto& document = model.document();
    dialog->setDirectory(document ? qs(document->url.parent_path().string())
                                  : defaultSessionFolder());
    dialog->onChosen = [this](const QString& folder) { openSession(folder.toStdString()); };
    currentSessionDialog = dialog;
    connect(dialog, &QDialog::finished, this, [this] { currentSessionDialog = nullptr; });
    dialog->open();
}

// Opens the bundle `url` is, or lies in (a folder chosen inside one).
void MainWindow::openSession(const std::filesystem::path& url) {
    for (std::filesystem::path p = url; !p.empty(); p = p.parent_path()) {
        if (EditorModel::isSessionDocument(p)) {
            model.openDocument(p);
            return;
        }
        if (p == p.parent_path()) break;
    }
    model.showAlert({"Couldn't open \u201C" + url.filename().string() + "\u201D",
                     "It isn't a Sonvale session. A session is a folder whose name ends in "
                     "\u201C.sonvale\u201D."});
}

void MainWindow::newSession() {
    if (model.isSavingDocument()) return;
    QPointer<MainWindow> self(this);
    auto fresh = [self] {
        if (self) self->model.newSession();
    };
    if (model.needsSaving())
        askToLeaveSession(false, fresh);
    else
        fresh();
}

void MainWindow::askToRevert() {
    if (!model.document() || !model.isDocumentEdited() || currentQuestion) return;
    const QString name = qs(model.documentName());
    auto* box = new QMessageBox(
        QMessageBox::Warning, name,
        QString::fromUtf8("Revert to the saved version of \u201C%1\u201D?").arg(name),
        QMessageBox::NoButton, this);
    box->setObjectName("sessionQuestion");
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText("Your changes since it was saved will be lost.");
    QPushButton* revert = box->addButton("Revert", QMessageBox::DestructiveRole);
    box->setDefaultButton(box->addButton(QMessageBox::Cancel));
    currentQuestion = box;
    connect(box, &QMessageBox::finished, this, [this, box, revert] {
        currentQuestion = nullptr;
        if (box->clickedButton() != revert) return;
        QPointer<MainWindow> self(this);
        confirmKeepingNewFiles([self] {
            if (self) self->model.revertDocument();
        });
    });
    box->open();
}

void MainWindow::presentSnapshots() {
    if (!model.document()) return;
    auto* dialog = new SnapshotsDialog(model, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
}

// A file dialog in the missing file's former folder (home when that has gone too).
void MainWindow::presentLocateDialog() {
    const auto track = model.activeTrack();
    if (!track || !EditorModel::isMissing(*track) || currentSessionDialog) return;
    const std::filesystem::path former = track->url();
    const QString fileName = qs(former.filename().string());
    auto* dialog = new QFileDialog(this, QString::fromUtf8("Locate \u201C%1\u201D").arg(fileName));
    dialog->setObjectName("locateDialog");
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setLabelText(QFileDialog::Accept, "Locate");
    dialog->setNameFilters({audioFilesFilter, "All files (*)"});
    std::error_code error;
    const bool folderThere = std::filesystem::is_directory(former.parent_path(), error);
    dialog->setDirectory(folderThere ? qs(former.parent_path().string()) : QDir::homePath());
    dialog->selectFile(fileName);
    connect(dialog, &QFileDialog::fileSelected, this,
            [this, id = track->id()](const QString& file) {
                model.relinkMissing(id, file.toStdString());
            });
    currentSessionDialog = dialog;
    connect(dialog, &QDialog::finished, this, [this] { currentSessionDialog = nullptr; });
    dialog->open();
}

void MainWindow::placeLocateButton() {
    const QSize size = locateButton->sizeHint();
    locateButton->setGeometry((waveform->width() - size.width()) / 2, waveform->height() / 2 + 44,
                              size.width(), size.height());
}

// The window as the snapshot keeps it: at most 1280 pixels wide, as JPEG.
std::optional<std::vector<uint8_t>> MainWindow::windowPicture() {
    QImage image = grab().toImage();
    if (image.isNull()) return std::nullopt;
    if (image.width() > 1280) image = image.scaledToWidth(1280, Qt::SmoothTransformation);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "JPEG", 80)) return std::nullopt;
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

} // namespace sonvale
