#pragma once

#include <QDialog>

namespace sonvale {

class Preferences;

// The Settings window: every preference, written through the moment it changes.
class SettingsDialog : public QDialog {
    Q_OBJECT
public:
    explicit SettingsDialog(Preferences& preferences, QWidget* parent = nullptr);

private:
    Preferences& preferences;
};

} // namespace sonvale
