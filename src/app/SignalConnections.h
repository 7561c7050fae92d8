#pragma once

#include <sigc++/connection.h>
#include <utility>
#include <vector>

namespace sonvale {

// The connections a widget made to the model's or a track's signals: dropped by clear() and
// when the widget's members go, so nothing calls back into a widget that has gone.
class SignalConnections {
public:
    SignalConnections() = default;
    SignalConnections(const SignalConnections&) = delete;
    SignalConnections& operator=(const SignalConnections&) = delete;
    ~SignalConnections() { clear(); }

    void add(sigc::connection connection) { connections.push_back(std::move(connection)); }

    void clear() {
        for (auto& connection : connections)
            connection.disconnect();
        connections.clear();
    }

private:
    std::vector<sigc::connection> connections;
};

} // namespace sonvale
