#include "app/SpectrogramControls.h"

#include "persistence/Preferences.h"

#include <QCheckBox>
#include <QComboBox>
#include <QSignalBlocker>

namespace sonvale {

SpectrogramControls::SpectrogramControls(Preferences& preferences, QObject* parent)
    : QObject(parent)
    , preferences(preferences) {
    auto change = [this](auto edit) {
        SpectrogramSettings settings = this->preferences.spectrogramSettings();
        edit(settings);
        this->preferences.setSpectrogramSettings(settings);
    };

    fftSize = new QComboBox;
    fftSize->setObjectName("spectrogramFFTSize");
    fftSize->setToolTip("Larger sizes resolve pitch more finely and time more coarsely");
    for (int size : {512, 1024, 2048, 4096})
        fftSize->addItem(QString::number(size), size);
    connect(fftSize, &QComboBox::currentIndexChanged, this, [this, change] {
        change([this](SpectrogramSettings& s) { s.fftSize = fftSize->currentData().toInt(); });
    });

    colorMap = new QComboBox;
    colorMap->setObjectName("spectrogramColorMap");
    for (auto map : {SpectrogramColorMap::inferno, SpectrogramColorMap::magma,
                     SpectrogramColorMap::viridis, SpectrogramColorMap::grayscale}) {
        const auto raw = rawValue(map);
        QString title = QString::fromUtf8(raw.data(), qsizetype(raw.size()));
        title[0] = title[0].toUpper();
        colorMap->addItem(title, int(map));
    }
    connect(colorMap, &QComboBox::currentIndexChanged, this, [this, change] {
        change([this](SpectrogramSettings& s) {
            s.colorMap = SpectrogramColorMap(colorMap->currentData().toInt());
        });
    });

    logFrequency = new QCheckBox("Logarithmic frequency axis");
    logFrequency->setObjectName("spectrogramLogFrequency");
    connect(logFrequency, &QCheckBox::toggled, this,
            [change](bool on) { change([on](SpectrogramSettings& s) { s.logFrequency = on; }); });

    connections.add(preferences.changed.connect([this](Preferences::Setting setting) {
        if (setting == Preferences::Setting::spectrogramSettings) refresh();
    }));
    refresh();
}

void SpectrogramControls::refresh() {
    const SpectrogramSettings& settings = preferences.spectrogramSettings();
    const QSignalBlocker blockSize(fftSize), blockMap(colorMap), blockLog(logFrequency);
    fftSize->setCurrentIndex(fftSize->findData(settings.fftSize));
    colorMap->setCurrentIndex(colorMap->findData(int(settings.colorMap)));
    logFrequency->setChecked(settings.logFrequency);
}

} // namespace sonvale
