#include "app/AboutDialog.h"

namespace sonvale {

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent) {
    setWindowTitle("About Sonvale");
}

} // namespace sonvale
