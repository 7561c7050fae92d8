#pragma once

#include <QDialog>

namespace sonvale {

// The About panel: name, version, licence.
class AboutDialog : public QDialog {
    Q_OBJECT
public:
    explicit AboutDialog(QWidget* parent = nullptr);
};

} // namespace sonvale
