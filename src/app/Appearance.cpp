#include "app/Appearance.h"

#include "app/canvas/CanvasTheme.h"
#include "persistence/Preferences.h"

#include <QApplication>
#include <QPalette>

namespace sonvale::appearance {

namespace {

struct Colours {
    QColor window, text, base, alternate, button, highlight, highlightedText, link, placeholder,
        disabledText;
};

QPalette make(const Colours& c, bool dark) {
    QPalette p(c.button, c.window);
    for (auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        const bool off = group == QPalette::Disabled;
        p.setColor(group, QPalette::Window, c.window);
        p.setColor(group, QPalette::WindowText, off ? c.disabledText : c.text);
        p.setColor(group, QPalette::Base, off ? c.window : c.base);
        p.setColor(group, QPalette::AlternateBase, c.alternate);
        p.setColor(group, QPalette::Text, off ? c.disabledText : c.text);
        p.setColor(group, QPalette::Button, c.button);
        p.setColor(group, QPalette::ButtonText, off ? c.disabledText : c.text);
        p.setColor(group, QPalette::BrightText, dark ? QColor(0xff, 0x6b, 0x5e) : Qt::red);
        p.setColor(group, QPalette::Highlight, off ? c.button.darker(110) : c.highlight);
        p.setColor(group, QPalette::HighlightedText, off ? c.disabledText : c.highlightedText);
        p.setColor(group, QPalette::Link, c.link);
        p.setColor(group, QPalette::PlaceholderText, c.placeholder);
        p.setColor(group, QPalette::ToolTipBase, c.base);
        p.setColor(group, QPalette::ToolTipText, c.text);
        p.setColor(group, QPalette::Light, dark ? c.button.lighter(135) : Qt::white);
        p.setColor(group, QPalette::Midlight, dark ? c.button.lighter(115) : c.button.lighter(105));
        p.setColor(group, QPalette::Mid, dark ? c.window.darker(125) : c.button.darker(130));
        p.setColor(group, QPalette::Dark, dark ? c.window.darker(160) : c.button.darker(160));
        p.setColor(group, QPalette::Shadow, Qt::black);
    }
    return p;
}

// The desktop's palette, as it was before Sonvale set one.
const QPalette& systemPalette() {
    static const QPalette system = QApplication::palette();
    return system;
}

} // namespace

QPalette lightPalette() {
    return make({QColor(0xef, 0xef, 0xf1), QColor(0x1d, 0x1d, 0x1f), QColor(0xff, 0xff, 0xff),
                 QColor(0xf5, 0xf5, 0xf7), QColor(0xe6, 0xe6, 0xe9), QColor(0x25, 0x5a, 0xb8),
                 QColor(0xff, 0xff, 0xff), QColor(0x1a, 0x5f, 0xb4), QColor(0x6b, 0x6b, 0x70),
                 QColor(0x8e, 0x8e, 0x93)},
                false);
}

QPalette darkPalette() {
    return make({QColor(0x2a, 0x2b, 0x2f), QColor(0xe8, 0xe8, 0xea), QColor(0x1e, 0x1f, 0x22),
                 QColor(0x26, 0x27, 0x2b), QColor(0x38, 0x39, 0x3e), QColor(0x2d, 0x62, 0xb8),
                 QColor(0xff, 0xff, 0xff), QColor(0x7a, 0xb0, 0xff), QColor(0x9a, 0x9a, 0xa0),
                 QColor(0x80, 0x80, 0x86)},
                true);
}

void apply(const Preferences& preferences) {
    const QPalette& system = systemPalette();
    QPalette chosen = system;
    if (!preferences.followsSystemAppearance()) {
        const auto theme = CanvasTheme::make(preferences.canvasTheme(), system);
        chosen = theme.background.lightnessF() < 0.5 ? darkPalette() : lightPalette();
    }
    if (QApplication::palette() != chosen) QApplication::setPalette(chosen);
}

} // namespace sonvale::appearance
