#include "app/timeline/LaneHeader.h"

#include "app/ChannelControls.h"
#include "app/LevelMeterWidget.h"
#include "app/QtText.h"
#include "app/timeline/TimelineView.h"
#include "timeline/Timeline.h"

#include <QComboBox>
#include <QContextMenuEvent>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <cmath>

namespace sonvale {

namespace {

constexpr int gainSteps = 10; // slider steps per decibel

} // namespace

LaneHeader::LaneHeader(Timeline& timeline, const Uuid& laneID, QWidget* parent)
    : QWidget(parent)
    , timeline(timeline)
    , id(laneID) {
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Window);
    setToolTip("Drag the colour strip to move the lane up or down; right-click for more");
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(10, 2, 4, 3);
    grid->setHorizontalSpacing(4);
    grid->setVerticalSpacing(1);

    name = new QLineEdit(this);
    name->setFrame(false);
    name->setToolTip("Lane name (click to rename)");
    QFont bold = name->font();
    bold.setBold(true);
    name->setFont(bold);
    connect(name, &QLineEdit::editingFinished, this, [this] {
        const std::string typed = name->text().trimmed().toStdString();
        const TimelineLane* lane = this->timeline.lane(id);
        if (!lane) return;
        if (typed.empty())
            name->setText(qs(lane->name));
        else if (typed != lane->name)
            this->timeline.renameLane(id, typed);
        name->clearFocus();
    });

    onOff = new ChannelSwitch(this);
    onOff->setFixedSize(36, 20);
    connect(onOff, &ChannelSwitch::clicked, this,
            [this] { this->timeline.toggleLane(id, onOff->takeAlt()); });

    gain = new QSlider(Qt::Horizontal, this);
    gain->setRange(-60 * gainSteps, 12 * gainSteps);
    gain->setPageStep(3 * gainSteps);
    connect(gain, &QSlider::valueChanged, this,
            [this](int value) { this->timeline.setLaneGain(id, float(value) / gainSteps); });
    new DragStep(gain, historyOf(timeline));

    pan = new QSlider(Qt::Horizontal, this);
    pan->setRange(-100, 100);
    pan->setPageStep(10);
    pan->setFixedWidth(70);
    connect(pan, &QSlider::valueChanged, this,
            [this](int value) { this->timeline.setLanePan(id, float(value) / 100); });
    new DragStep(pan, historyOf(timeline));

    output = new QComboBox(this);
    output->setToolTip("Where the lane plays: the master or a bus");
    connect(output, &QComboBox::activated, this, [this](int index) {
        const QString bus = output->itemData(index).toString();
        this->timeline.setOutput(id, bus.isEmpty() ? std::nullopt : Uuid::parse(bus.toStdString()));
    });

    meter = new LevelMeterWidget(this);
    meter->setMinimumSize(40, 6);
    meter->setFixedHeight(6);
    meter->setToolTip("Lane level (click to reset the clip light)");
    gainLabel = new QLabel(this);
    gainLabel->setFixedWidth(50);
    gainLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    makeGainControl(gain, gainLabel, gainSteps);

    grid->addWidget(name, 0, 0, 1, 2);
    grid->addWidget(onOff, 0, 2);
    grid->addWidget(gain, 1, 0, 1, 2);
    grid->addWidget(gainLabel, 1, 2);
    grid->addWidget(output, 2, 0);
    grid->addWidget(pan, 2, 1, 1, 2);
    grid->addWidget(meter, 3, 0, 1, 3);
    grid->setColumnStretch(0, 1);
}

void LaneHeader::sync(const TimelineLane& lane) {
    colorIndex = lane.colorIndex;
    if (!name->hasFocus()) name->setText(qs(lane.name));
    {
        const QSignalBlocker block(onOff);
        onOff->setChecked(!lane.isMuted);
    }
    onOff->setText(lane.isMuted ? "Off" : "On");
    onOff->setToolTip(ChannelSwitch::laneToolTip(!lane.isMuted));
    if (!gain->isSliderDown()) {
        const QSignalBlocker block(gain);
        gain->setValue(int(std::lround(lane.gainDB * gainSteps)));
    }
    gain->setToolTip("Gain " + gainText(lane.gainDB));
    gainLabel->setText(gainText(lane.gainDB));
    if (!pan->isSliderDown()) {
        const QSignalBlocker block(pan);
        pan->setValue(int(std::lround(lane.pan * 100)));
    }
    pan->setToolTip("Pan " + panText(lane.pan));
    fillOutputs(lane);
    update();
}

void LaneHeader::fillOutputs(const TimelineLane& lane) {
    const QSignalBlocker block(output);
    output->clear();
    output->addItem("Master", QString());
    for (const TimelineBus& bus : timeline.buses())
        output->addItem(qs(bus.name), qs(bus.id.text()));
    const TimelineBus* bus = timeline.bus(lane.output);
    output->setCurrentIndex(bus ? output->findData(qs(bus->id.text())) : 0);
}

void LaneHeader::refreshMeter(int row, int64_t heardBy, double now) {
    const auto peaks = timeline.meters()->collect(LevelMeters::Slot::lane(row), reader, heardBy);
    const float levels[] = {peaks.left, peaks.right};
    meter->ballistics.update(std::span<const float>(levels), now);
    meter->update();
}

void LaneHeader::paintEvent(QPaintEvent* event) {
    QWidget::paintEvent(event);
    QPainter painter(this);
    painter.fillRect(QRect(0, 0, 5, height()), TimelineView::laneColor(colorIndex));
    painter.setPen(palette().mid().color());
    painter.drawLine(width() - 1, 0, width() - 1, height());
}

void LaneHeader::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && event->position().x() < 10) Q_EMIT reorderStarted(id);
    QWidget::mousePressEvent(event);
}

void LaneHeader::contextMenuEvent(QContextMenuEvent* event) {
    QMenu menu(this);
    menu.addAction("Hear Only This Lane", this, [this] { timeline.toggleLane(id, true); });
    menu.addAction("Rename Lane", this, [this] {
        name->setFocus();
        name->selectAll();
    });
    menu.addSeparator();
    menu.addAction("Remove Lane", this, [this] { timeline.removeLane(id); });
    menu.exec(event->globalPos());
}

} // namespace sonvale
