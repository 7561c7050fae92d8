#pragma once

#include <QDialog>
#include <QIcon>

namespace sonvale {

// The program's icon (data/sonvale.svg, built into the program).
QIcon applicationIcon();

// The About panel: icon, name, version, what Sonvale is, and its licence.
class AboutDialog : public QDialog {
    Q_OBJECT
public:
    explicit AboutDialog(QWidget* parent = nullptr);

    static constexpr const char* summary =
        "An audio editor for recordings, podcasts and music: cut, polish, measure loudness, "
        "add effects and export.";
    static constexpr const char* licence = "GPL-3.0-or-later";
};

} // namespace sonvale
