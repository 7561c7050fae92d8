// Knobs dragged while the audio plays: every parameter of a chain of all thirteen effects is
// swept back and forth through its travel, one small step every few milliseconds, as the
// effects panel does while a knob is dragged, for as long as asked (60 s by default). The
// engine plays a long mix of tones and noise through the real sound server all the while.
// Prints the number of knob changes and the output's underruns (goal: none). Run it through
// bench/knob-dragging.sh, which provides the sound server.

#include "audio/AudioLoader.h"
#include "effects/EffectChain.h"
#include "effects/EffectKind.h"
#include "effects/EffectSession.h"
#include "engine/PlaybackEngine.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

using namespace sonvale;
using namespace std::chrono_literals;

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
    constexpr double rate = 48000;
    const auto frames = int64_t(rate * (seconds + 5));
    std::mt19937 random(5);
    std::normal_distribution<float> noise(0.0f, 0.05f);
    std::vector<FloatBuffer> buffers;
    for (int c = 0; c < 2; ++c) {
        FloatBuffer buffer(frames);
        for (int64_t i = 0; i < frames; ++i) {
            const double t = double(i) / rate;
            buffer[i] = float(0.3 * std::sin(2 * M_PI * (220 + 110 * c) * t) *
                              (0.6 + 0.4 * std::sin(2 * M_PI * 0.5 * t))) +
                        noise(random);
        }
        buffers.push_back(std::move(buffer));
    }
    auto audio = AudioLoader::makeAudioData(rate, std::move(buffers), frames);

    auto chain = std::make_shared<EffectChain>();
    for (EffectKind kind : allEffectKinds())
        chain->append(EffectSession::make(kind));

    PlaybackEngine engine;
    engine.setEffectFactory([chain](double sampleRate, int channels) {
        return chain->previewProcessor(sampleRate, channels);
    });
    try {
        auto source =
            engine.prepare(AudioDataContent::make(audio), std::make_shared<GainBox>(0.5f));
        source->start({0, frames}, 0, false);
        engine.start();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "knob-dragging: %s\n", error.what());
        return 1;
    }

    // Each knob moves 1/200 of its travel per step, turning at the ends.
    int64_t steps = 0;
    std::vector<std::vector<double>> position;
    std::vector<std::vector<double>> direction;
    for (const auto& session : chain->effects()) {
        const auto& params = parameters(session->kind());
        position.emplace_back(params.size());
        direction.emplace_back(params.size(), 1.0);
        for (size_t p = 0; p < params.size(); ++p)
            position.back()[p] = params[p].normalized(session->values()[p]);
    }
    const auto began = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - began < std::chrono::duration<double>(seconds)) {
        size_t e = 0;
        for (const auto& session : chain->effects()) {
            const auto& params = parameters(session->kind());
            for (size_t p = 0; p < params.size(); ++p) {
                double& t = position[e][p];
                t += direction[e][p] * 0.005;
                if (t > 1 || t < 0) direction[e][p] = -direction[e][p], t = std::clamp(t, 0.0, 1.0);
                session->setValue(int(p), params[p].value(t));
                ++steps;
            }
            ++e;
        }
        std::this_thread::sleep_for(5ms);
    }
    const int64_t underruns = engine.underflowCount();
    engine.stop();

    std::printf("%.0f s of knob dragging over %zu effects: %lld knob changes, %lld underruns\n",
                seconds, chain->effects().size(), static_cast<long long>(steps),
                static_cast<long long>(underruns));
    return underruns == 0 ? 0 : 2;
}
