#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "client/CSClient.h"

namespace com_tesk::test {

/// Records every callback as a line, for example "state 0->1", "inputs confirmed A B", "outputs confirmed",
/// "updated A=int:-2 B=float:1.5". Any thread.
class RecordingCallbacks : public CSClient::CallbackIface {
  public:
    static constexpr std::chrono::milliseconds kBound{10'000};

    void connectionStateChanged(CSClient::State oldState, CSClient::State newState) override {
        record("state " + std::to_string(oldState) + "->" + std::to_string(newState));
    }

    void inputParametersUpdated(const std::vector<CSClient::Parameter>& parameters) override {
        std::ostringstream line;
        line << "updated";
        for (const CSClient::Parameter& parameter : parameters) {
            line << ' ' << parameter.name << '=';
            if (parameter.type == CSClient::TYPE_INT) {
                line << "int:" << parameter.value.asInt;
            } else if (parameter.type == CSClient::TYPE_FLOAT) {
                line << "float:" << parameter.value.asFloat;
            } else {
                line << "type " << parameter.type;
            }
            if (parameter.reserved != 0) {
                line << " reserved " << parameter.reserved;
            }
        }
        record(line.str());
    }

    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& outputs) override {
        recordNames("outputs confirmed", outputs);
    }

    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& inputs) override {
        recordNames("inputs confirmed", inputs);
    }

    /// Called after a line was recorded, on the callback's thread, with no lock of this object held.
    std::function<void(const std::string& line)> onLine;

    std::vector<std::string> lines() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return recorded;
    }

    /// Returns only the state changes, for example "0->1 1->2 2->4".
    std::string states() const {
        std::string text;
        for (const std::string& line : lines()) {
            if (line.compare(0, 6, "state ") == 0) {
                text += (text.empty() ? "" : " ") + line.substr(6);
            }
        }
        return text;
    }

    /// Waits until `line` has been recorded `count` times.
    bool waitFor(const std::string& line, int count = 1, std::chrono::milliseconds bound = kBound) const {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(
            lock, bound, [this, &line, count] { return std::count(recorded.begin(), recorded.end(), line) >= count; });
    }

  protected:
    virtual void record(const std::string& line) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            recorded.push_back(line);
            changed.notify_all();
        }
        if (onLine) {
            onLine(line);
        }
    }

  private:
    template <typename Definition>
    void recordNames(std::string line, const std::vector<Definition>& definitions) {
        for (const Definition& definition : definitions) {
            line += ' ' + definition.name;
        }
        record(line);
    }

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<std::string> recorded;
};

}  // namespace com_tesk::test
