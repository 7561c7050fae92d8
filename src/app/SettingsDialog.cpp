#include "app/SettingsDialog.h"

#include "persistence/Preferences.h"

namespace sonvale {

SettingsDialog::SettingsDialog(Preferences& preferences, QWidget* parent)
    : QDialog(parent), preferences(preferences) {
    setWindowTitle("Settings");
}

} // namespace sonvale
