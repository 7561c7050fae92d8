#include "app/timeline/MixerView.h"

#include "app/LevelMeterWidget.h"
#include "editor/EditorModel.h"
#include "engine/PlaybackEngine.h"
#include "timeline/Timeline.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

namespace sonvale {

MixerView::MixerView(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , model(model)
    , timeline(*model.timeline()) {
    setObjectName("mixerView");
    setMinimumHeight(230);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    scroller = new QScrollArea(this);
    scroller->setObjectName("mixerStrips");
    scroller->setWidgetResizable(true);
    scroller->setFrameShape(QFrame::NoFrame);
    scroller->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    row = new QWidget(scroller);
    rowLayout = new QHBoxLayout(row);
    rowLayout->setContentsMargins(0, 0, 0, 0);
    rowLayout->setSpacing(0);
    auto* busColumn = new QVBoxLayout;
    busColumn->setContentsMargins(6, 8, 6, 6);
    newBus = new QPushButton("New Bus", row);
    newBus->setObjectName("newBus");
    newBus->setToolTip("Add a bus: the lanes routed to it share its fader and effects");
    connect(newBus, &QPushButton::clicked, this, [this] { timeline.addBus(); });
    busColumn->addWidget(newBus);
    busColumn->addStretch();
    rowLayout->addLayout(busColumn);
    rowLayout->addStretch(1);
    scroller->setWidget(row);
    layout->addWidget(scroller, 1);

    auto* rule = new QFrame(this);
    rule->setFrameShape(QFrame::VLine);
    rule->setFrameShadow(QFrame::Sunken);
    layout->addWidget(rule);
    masterColumn = new QHBoxLayout;
    masterColumn->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(masterColumn);

    meterTimer = new QTimer(this);
    meterTimer->setInterval(meterIntervalMs);
    connect(meterTimer, &QTimer::timeout, this, [this] {
        if (!refreshMeters(LevelMeterWidget::clockSeconds()) && !this->model.isPlayingTimeline())
            meterTimer->stop();
    });

    connections.add(
        timeline.contentChanged.connect([this] { currentLayout() == shown ? sync() : rebuild(); }));
    // Zooming and scrolling the timeline change its view too; only minimised strips matter here.
    connections.add(timeline.viewChanged.connect([this] {
        if (currentLayout() != shown) rebuild();
    }));
    // Fires for every knob turned in a chain: only the Effects buttons follow.
    connections.add(timeline.effectsChanged.connect([this] {
        for (MixerStrip* strip : stripList)
            strip->syncEffects(timeline);
    }));
    connections.add(model.transportChanged.connect([this] {
        if (this->model.isPlayingTimeline()) startMetering();
    }));
    rebuild();
}

MixerView::Layout MixerView::currentLayout() const {
    Layout layout;
    for (const TimelineLane& lane : timeline.lanes())
        layout.lanes.push_back(lane.id);
    for (const TimelineBus& bus : timeline.buses())
        layout.buses.push_back(bus.id);
    layout.minimized = timeline.minimizedChannels();
    return layout;
}

void MixerView::rebuild() {
    // The old strips may be in the middle of handling the click that changed the layout.
    for (MixerStrip* old : stripList) {
        old->hide();
        old->deleteLater();
    }
    stripList.clear();
    slots.clear();
    const size_t busesBefore = shown ? shown->buses.size() : 0;
    shown = currentLayout();
    using Kind = MixerStrip::Kind;
    auto add = [this](Kind kind, std::optional<Uuid> id, LevelMeters::Slot slot, QWidget* parent) {
        const bool minimized =
            kind != Kind::lane &&
            shown->minimized.contains(id ? MixerChannel::forBus(*id) : MixerChannel::master());
        auto* strip = new MixerStrip(model, kind, id, minimized, parent);
        stripList.push_back(strip);
        slots.push_back(slot);
        return strip;
    };
    int place = 0;
    for (size_t i = 0; i < shown->lanes.size(); ++i, ++place)
        rowLayout->insertWidget(
            place, add(Kind::lane, shown->lanes[i], LevelMeters::Slot::lane(int(i)), row));
    for (size_t i = 0; i < shown->buses.size(); ++i, ++place)
        rowLayout->insertWidget(
            place, add(Kind::bus, shown->buses[i], LevelMeters::Slot::bus(int(i)), row));
    masterColumn->addWidget(add(Kind::master, {}, LevelMeters::Slot::master(), this));
    // A new bus comes into view.
    if (shown->buses.size() > busesBefore && busesBefore > 0)
        QTimer::singleShot(0, this, [this] { scroller->ensureWidgetVisible(newBus); });
}

void MixerView::sync() {
    for (MixerStrip* strip : stripList)
        strip->sync(timeline);
}

MixerStrip* MixerView::strip(MixerStrip::Kind kind, const std::optional<Uuid>& id) const {
    for (MixerStrip* s : stripList)
        if (s->kind() == kind && s->id() == id) return s;
    return nullptr;
}

bool MixerView::isMetering() const { return meterTimer->isActive(); }

int64_t MixerView::heardFrame() const {
    const int64_t latency = model.isPlaying() ? model.player().latencyFrames() : 0;
    return timeline.meters()->mixedFrames() - latency;
}

bool MixerView::refreshMeters(double now) {
    LevelMeters& meters = *timeline.meters();
    const int64_t heardBy = heardFrame();
    bool showing = false;
    for (size_t i = 0; i < stripList.size(); ++i) {
        const LevelMeters::Peaks peaks = meters.take(slots[i], heardBy);
        LevelMeterWidget* meter = stripList[i]->meter();
        if (peaks == LevelMeters::Peaks{} && meter->ballistics.isResting()) continue;
        const float both[] = {peaks.left, peaks.right};
        meter->ballistics.update(both, now);
        meter->update();
        showing |= !meter->ballistics.isResting();
    }
    return showing;
}

void MixerView::skipUnheardPeaks() {
    const int64_t heardBy = heardFrame();
    for (const LevelMeters::Slot& slot : slots)
        timeline.meters()->take(slot, heardBy);
}

void MixerView::startMetering() {
    if (isVisible() && !meterTimer->isActive()) meterTimer->start();
}

void MixerView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    skipUnheardPeaks();
    // Meters left showing a level fall to rest; the timer stops itself once they have.
    startMetering();
}

void MixerView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    meterTimer->stop();
}

} // namespace sonvale
