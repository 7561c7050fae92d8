#include "app/timeline/MixerStrip.h"

#include "app/ChannelControls.h"
#include "app/LevelMeterWidget.h"
#include "app/QtText.h"
#include "app/timeline/TimelineView.h"
#include "editor/EditorModel.h"
#include "timeline/Timeline.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>
#include <cmath>
#include <functional>
#include <tuple>

namespace sonvale {

namespace {

constexpr int rowHeight = 26;
constexpr int bandHeight = 5;
constexpr int busHueCount = 12;
// The part of a minimised strip where its name stands, written upwards.
constexpr int minimizedNameTop = 34;
constexpr int minimizedNameLength = 96;

// A slider that goes back to its resting value on a double-click.
class ResettingSlider : public QSlider {
public:
    ResettingSlider(Qt::Orientation orientation, std::function<void()> reset, QWidget* parent)
        : QSlider(orientation, parent)
        , reset(std::move(reset)) {}

protected:
    void mouseDoubleClickEvent(QMouseEvent* event) override {
        reset();
        event->accept();
    }

private:
    std::function<void()> reset;
};

QIcon swatch(const QColor& color) {
    QPixmap pixmap(14, 14);
    pixmap.fill(color);
    return QIcon(pixmap);
}

// A row of controls of the strip's top part, the same height in every kind of strip.
QHBoxLayout* addRow(QVBoxLayout* column, QWidget* parent) {
    auto* row = new QWidget(parent);
    row->setFixedHeight(rowHeight);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    column->addWidget(row);
    return layout;
}

} // namespace

MixerStrip::MixerStrip(EditorModel& model, Kind kind, std::optional<Uuid> id, bool minimized,
                       QWidget* parent)
    : QWidget(parent)
    , model(model)
    , timeline(*model.timeline())
    , stripKind(kind)
    , channelID(std::move(id))
    , minimized(minimized && kind != Kind::lane) {
    setObjectName(kind == Kind::lane  ? "laneStrip"
                  : kind == Kind::bus ? "busStrip"
                                      : "masterStrip");
    setFixedWidth(this->minimized ? minimizedWidth : stripWidth);
    levelMeter = new LevelMeterWidget(this, Qt::Vertical);
    levelMeter->setObjectName("stripMeter");
    levelMeter->setToolTip("Level (click to reset the clip light)");
    if (this->minimized)
        buildMinimized();
    else
        buildFull();
    sync(timeline);
}

std::optional<MixerChannel> MixerStrip::channel() const {
    if (stripKind == Kind::master) return MixerChannel::master();
    if (stripKind == Kind::bus && channelID) return MixerChannel::forBus(*channelID);
    return std::nullopt;
}

QColor MixerStrip::busColor(double hue) {
    return QColor::fromHsvF(float(hue - std::floor(hue)), 0.55f, 0.85f);
}

void MixerStrip::buildFull() {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(4, bandHeight + 3, 4, 4);
    column->setSpacing(3);

    QHBoxLayout* title = addRow(column, this);
    if (stripKind == Kind::bus) {
        busName = new QLineEdit(this);
        busName->setObjectName("busName");
        busName->setFrame(false);
        busName->setToolTip("The bus's name (click to rename)");
        connect(busName, &QLineEdit::editingFinished, this, [this] {
            const std::string text = busName->text().trimmed().toStdString();
            const TimelineBus* bus = timeline.bus(channelID);
            if (!bus) return;
            if (text.empty() || text == bus->name)
                busName->setText(qs(bus->name));
            else
                timeline.renameBus(*channelID, text);
        });
        title->addWidget(busName, 1);
    } else {
        nameLabel = new QLabel(this);
        nameLabel->setObjectName("stripName");
        title->addWidget(nameLabel, 1);
    }
    if (const auto mixerChannel = channel()) {
        minimize = new QToolButton(this);
        minimize->setObjectName("minimizeStrip");
        minimize->setArrowType(Qt::LeftArrow);
        minimize->setAutoRaise(true);
        minimize->setFixedSize(16, 20);
        minimize->setToolTip("Minimise this strip");
        connect(minimize, &QToolButton::clicked, this,
                [this, c = *mixerChannel] { timeline.setMinimized(c, true); });
        title->addWidget(minimize);
    }

    QHBoxLayout* second = addRow(column, this);
    if (stripKind == Kind::lane) {
        output = new QComboBox(this);
        output->setObjectName("laneOutput");
        output->setToolTip("Where the lane plays into: the master or a bus");
        connect(output, &QComboBox::activated, this, [this](int index) {
            timeline.setOutput(*channelID,
                               Uuid::parse(output->itemData(index).toString().toStdString()));
        });
        second->addWidget(output);
    } else {
        effects = new QPushButton(QString::fromUtf8("Effects\u2026"), this);
        effects->setObjectName("stripEffects");
        connect(effects, &QPushButton::clicked, this,
                [this] { model.editMixerEffects(*channel()); });
        second->addWidget(effects);
    }

    QHBoxLayout* third = addRow(column, this);
    if (stripKind == Kind::lane) {
        pan = new ResettingSlider(
            Qt::Horizontal, [this] { timeline.setLanePan(*channelID, 0); }, this);
        pan->setObjectName("lanePan");
        pan->setRange(-100, 100);
        pan->setPageStep(10);
        pan->setToolTip("Pan (double-click: centre)");
        new DragStep(pan, historyOf(timeline));
        connect(pan, &QSlider::valueChanged, this,
                [this](int value) { timeline.setLanePan(*channelID, float(value) / 100); });
        panLabel = new QLabel(this);
        panLabel->setFixedWidth(26);
        panLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        third->addWidget(pan, 1);
        third->addWidget(panLabel);
    } else if (stripKind == Kind::bus) {
        colorMenuButton = new QToolButton(this);
        colorMenuButton->setObjectName("busColor");
        colorMenuButton->setToolTip("The bus's colour");
        colorMenuButton->setPopupMode(QToolButton::InstantPopup);
        auto* hues = new QMenu(colorMenuButton);
        for (int i = 0; i < busHueCount; ++i) {
            const double hue = double(i) / busHueCount;
            hues->addAction(swatch(busColor(hue)), QString(), this,
                            [this, hue] { timeline.recolorBus(*channelID, hue); });
        }
        colorMenuButton->setMenu(hues);
        remove = new QToolButton(this);
        remove->setObjectName("removeBus");
        remove->setText(QString::fromUtf8("\u2715"));
        remove->setToolTip("Remove this bus; its lanes play into the master");
        connect(remove, &QToolButton::clicked, this, [this] { timeline.removeBus(*channelID); });
        third->addWidget(colorMenuButton);
        third->addStretch();
        third->addWidget(remove);
    }

    QHBoxLayout* fourth = addRow(column, this);
    if (stripKind != Kind::master) {
        power = new ChannelSwitch(this);
        connect(power, &ChannelSwitch::clicked, this, [this] {
            const bool only = power->takeAlt();
            if (stripKind == Kind::lane)
                timeline.toggleLane(*channelID, only);
            else if (const TimelineBus* bus = timeline.bus(channelID))
                timeline.setBusMuted(bus->id, !bus->isMuted);
        });
        fourth->addWidget(power);
        fourth->addStretch();
    }

    auto* faderRow = new QHBoxLayout;
    faderRow->setSpacing(4);
    gainFader = new ResettingSlider(
        Qt::Vertical, [this] { writeGain(0); }, this);
    gainFader->setObjectName("gainFader");
    gainFader->setRange(int(faderFloorDB * 10), int(faderCeilingDB * 10));
    gainFader->setSingleStep(5);
    gainFader->setPageStep(30);
    gainFader->setTickPosition(QSlider::TicksLeft);
    gainFader->setTickInterval(60);
    gainFader->setToolTip("Gain (double-click: 0 dB)");
    new DragStep(gainFader, historyOf(timeline));
    connect(gainFader, &QSlider::valueChanged, this,
            [this](int value) { writeGain(float(value) / 10); });
    faderRow->addStretch();
    faderRow->addWidget(gainFader);
    levelMeter->setFixedWidth(14);
    faderRow->addWidget(levelMeter);
    faderRow->addStretch();
    column->addLayout(faderRow, 1);

    gainLabel = new QLabel(this);
    gainLabel->setObjectName("stripGain");
    gainLabel->setAlignment(Qt::AlignCenter);
    makeGainControl(gainFader, gainLabel);
    column->addWidget(gainLabel);
}

void MixerStrip::buildMinimized() {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(2, bandHeight + 3, 2, 4);
    column->setSpacing(3);
    minimize = new QToolButton(this);
    minimize->setObjectName("minimizeStrip");
    minimize->setArrowType(Qt::RightArrow);
    minimize->setAutoRaise(true);
    minimize->setFixedSize(24, 20);
    minimize->setToolTip("Show this strip in full");
    connect(minimize, &QToolButton::clicked, this,
            [this] { timeline.setMinimized(*channel(), false); });
    column->addWidget(minimize, 0, Qt::AlignHCenter);
    // Room for the name, written upwards between the button and the meter (paintEvent).
    const int buttonBottom = bandHeight + 3 + minimize->height();
    column->addSpacing(minimizedNameTop + minimizedNameLength - buttonBottom -
                       2 * column->spacing());
    levelMeter->setFixedWidth(14);
    column->addWidget(levelMeter, 1, Qt::AlignHCenter);
}

void MixerStrip::writeGain(float gainDB) {
    switch (stripKind) {
    case Kind::lane: timeline.setLaneGain(*channelID, gainDB); break;
    case Kind::bus: timeline.setBusGain(*channelID, gainDB); break;
    case Kind::master: timeline.setMasterGain(gainDB); break;
    }
}

void MixerStrip::sync(const Timeline& t) {
    // What paintEvent draws: the band, dimmed while off, and the name of a minimised strip.
    const auto painted = [this] { return std::tuple(band, power && power->isChecked(), name); };
    const auto before = painted();
    float gainDB = 0;
    bool on = true;
    switch (stripKind) {
    case Kind::lane: {
        const TimelineLane* lane = t.lane(channelID);
        if (!lane) return;
        name = qs(lane->name);
        band = TimelineView::laneColor(lane->colorIndex);
        gainDB = lane->gainDB;
        on = !lane->isMuted;
        if (pan && !pan->isSliderDown()) {
            const QSignalBlocker block(pan);
            pan->setValue(int(std::lround(lane->pan * 100)));
        }
        if (panLabel) panLabel->setText(panText(lane->pan));
        if (output) syncOutputs(t, lane->output);
        break;
    }
    case Kind::bus: {
        const TimelineBus* bus = t.bus(channelID);
        if (!bus) return;
        name = qs(bus->name);
        band = busColor(bus->hue);
        gainDB = bus->gainDB;
        on = !bus->isMuted;
        if (busName && !busName->hasFocus()) busName->setText(name);
        if (colorMenuButton) colorMenuButton->setIcon(swatch(band));
        break;
    }
    case Kind::master:
        name = "Master";
        band = palette().mid().color();
        gainDB = t.masterGainDB();
        break;
    }
    setToolTip(name);
    if (nameLabel) {
        nameLabel->setText(
            nameLabel->fontMetrics().elidedText(name, Qt::ElideRight, stripWidth - 8 - 18));
        nameLabel->setToolTip(name);
    }
    if (power) {
        const QSignalBlocker block(power);
        power->setChecked(on);
        power->setText(on ? "On" : "Off");
        if (stripKind == Kind::lane)
            power->setToolTip(ChannelSwitch::laneToolTip(on));
        else
            power->setToolTip(on ? "Turn this bus off" : "Turn this bus on");
    }
    if (gainFader && !gainFader->isSliderDown()) {
        const QSignalBlocker block(gainFader);
        gainFader->setValue(int(std::lround(gainDB * 10)));
    }
    if (gainLabel) gainLabel->setText(gainText(gainDB));
    syncEffects(t);
    if (painted() != before) update();
}

void MixerStrip::syncOutputs(const Timeline& t, const std::optional<Uuid>& current) {
    QStringList names{"Master"};
    QStringList ids{QString()};
    int selected = 0;
    for (const TimelineBus& bus : t.buses()) {
        if (bus.id == current) selected = int(names.size());
        names << qs(bus.name);
        ids << qs(bus.id.text());
    }
    const QSignalBlocker block(output);
    bool same = output->count() == names.size();
    for (int i = 0; same && i < output->count(); ++i)
        same = output->itemText(i) == names[i] && output->itemData(i).toString() == ids[i];
    if (!same) {
        output->clear();
        for (int i = 0; i < names.size(); ++i)
            output->addItem(names[i], ids[i]);
    }
    output->setCurrentIndex(selected);
}

void MixerStrip::syncEffects(const Timeline& t) {
    if (!effects) return;
    QStringList active;
    if (const auto chain = t.existingChain(*channel()))
        for (const auto& session : chain->activeEffects())
            active << QString::fromUtf8(title(session->kind()).data());
    QFont font = effects->font();
    font.setBold(!active.isEmpty());
    effects->setFont(font);
    const QString whose = stripKind == Kind::master ? "the master's" : "this bus's";
    effects->setToolTip("Open " + whose + " effects in the effects panel" +
                        (active.isEmpty() ? QString() : " (" + active.join(", ") + ")"));
}

void MixerStrip::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), palette().window().color().darker(106));
    const bool muted = power && !power->isChecked();
    p.fillRect(QRect(0, 0, width(), bandHeight), muted ? band.darker(170) : band);
    p.setPen(palette().mid().color());
    p.drawLine(width() - 1, 0, width() - 1, height());
    if (!minimized) return;
    // The name, written upwards below the button.
    p.save();
    p.translate(0, minimizedNameTop + minimizedNameLength);
    p.rotate(-90);
    p.setPen(palette().windowText().color());
    const QRect area(0, 0, minimizedNameLength, width());
    p.drawText(area, Qt::AlignLeft | Qt::AlignVCenter,
               fontMetrics().elidedText(name, Qt::ElideRight, minimizedNameLength));
    p.restore();
}

} // namespace sonvale
