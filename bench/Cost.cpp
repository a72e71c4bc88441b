// Fixed work for the instruction counter: the cost of each call. It uses no sockets or threads, so every run counts the
// same.
//
// Prints "case calls values allocations", counted in the measured part only. scripts/cost runs it and compares.

#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>

#include "bench/CostCases.h"
#include "bench/CountedAllocations.h"
#include "bench/Frames.h"
#include "bench/MemoryEngine.h"
#include "bench/Names.h"

namespace com_tesk::bench {
namespace {

constexpr unsigned int kMany = 1'000;
constexpr unsigned int kRotating = 100;

/// Sums the values that arrive, as an application that reads every value.
class Summing : public CSClient::CallbackIface {
  public:
    void connectionStateChanged(CSClient::State /*oldState*/, CSClient::State /*newState*/) override {}
    void outputParametersConfirmed(const std::vector<CSClient::OutputDef>& /*outputs*/) override {}
    void inputParametersConfirmed(const std::vector<CSClient::InputDef>& /*inputs*/) override {}
    void inputParametersUpdated(const std::vector<CSClient::Parameter>& values) override {
        for (const CSClient::Parameter& value : values) {
            sum += value.value.asFloat;
        }
    }

    float sum = 0;
};

}  // namespace

void count(const char* name, unsigned int calls, unsigned int values, const std::function<void(unsigned int)>& call) {
    const unsigned long before = countedAllocations();
    CALLGRIND_START_INSTRUMENTATION;
    for (unsigned int i = 0; i < calls; ++i) {
        call(i);
    }
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("%s %u %u %lu\n", name, calls, calls * values, countedAllocations() - before);
}

namespace {

host::Bytes outputsReply(unsigned int count) {
    std::vector<host::OutputConfirmation> outputs;
    for (unsigned int i = 0; i < count; ++i) {
        outputs.push_back({i + 1, 0, 0, parameterName(i)});
    }
    return host::encodeOutputsReply(1, outputs);
}

host::Bytes inputsReply(unsigned int count) {
    std::vector<host::InputConfirmation> inputs;
    for (unsigned int i = 0; i < count; ++i) {
        inputs.push_back({i + 1, 0, 0, HostValue::real(1.0F), parameterName(i)});
    }
    return host::encodeInputsReply(1, inputs);
}

void registerOutputs(MemoryEngine& engine) {
    const auto definitions = outputDefinitions(kMany);
    engine.registerOutputParameters(definitions.data(), kMany);
    engine.receive(outputsReply(kMany));
}

void registerInputs(MemoryEngine& engine) {
    const auto definitions = inputDefinitions(kMany);
    engine.registerInputParameters(definitions.data(), kMany);
    engine.receive(inputsReply(kMany));
}

void publishOne(const char* name) {
    MemoryEngine engine;
    registerOutputs(engine);
    const auto values = parameters(0, kRotating);
    const auto publish = [&](unsigned int i) {
        engine.publishParameters(&values[i % kRotating], 1, CSClientProtocol::PUBLISH_DEFAULT);
    };
    for (unsigned int i = 0; i < kRotating; ++i) {
        publish(i);
    }
    count(name, 1'000, 1, publish);
}

void publishMany(const char* name, unsigned int orders) {
    MemoryEngine engine;
    registerOutputs(engine);
    std::vector<std::vector<CSClient::Parameter>> lists;
    std::mt19937 random(1);  // The same orders in every run.
    auto list = parameters(0, kMany);
    for (unsigned int i = 0; i < orders; ++i) {
        lists.push_back(list);
        // std::shuffle would give different results with different standard libraries.
        for (std::size_t last = list.size() - 1; last > 0; --last) {
            std::swap(list[last], list[random() % (last + 1)]);
        }
    }
    const auto publish = [&](unsigned int i) {
        engine.publishParameters(lists[i % orders].data(), kMany, CSClientProtocol::PUBLISH_DEFAULT);
    };
    for (unsigned int i = 0; i < orders; ++i) {
        publish(i);
    }
    count(name, 20, kMany, publish);
}

void update(const char* name, unsigned int calls, const std::vector<host::Bytes>& frames, unsigned int values) {
    MemoryEngine engine;
    Summing summing;
    engine.addCallbackInterface(&summing);
    registerInputs(engine);
    const auto receive = [&](unsigned int i) { engine.receive(frames[i % frames.size()]); };
    for (unsigned int i = 0; i < frames.size(); ++i) {
        receive(i);
    }
    count(name, calls, values, receive);
}

void updateMany(const char* name) {
    update(name, 20, {updateFrame(kMany)}, kMany);
}

void updateOne(const char* name) {
    std::vector<host::Bytes> frames;
    for (std::uint32_t id = 1; id <= kRotating; ++id) {
        frames.push_back(host::encodeUpdate(1, {{id, HostValue::real(1.0F)}}));
    }
    update(name, 1'000, frames, 1);
}

void registerMany(const char* name) {
    MemoryEngine engine;
    const auto definitions = outputDefinitions(kMany);
    count(name, 1, kMany, [&](unsigned int /*i*/) { engine.registerOutputParameters(definitions.data(), kMany); });
}

void confirmMany(const char* name) {
    MemoryEngine engine;
    const auto definitions = outputDefinitions(kMany);
    engine.registerOutputParameters(definitions.data(), kMany);
    const host::Bytes reply = outputsReply(kMany);
    count(name, 1, kMany, [&](unsigned int /*i*/) { engine.receive(reply); });
}

void unregisterMany(const char* name) {
    MemoryEngine engine;
    registerOutputs(engine);
    const auto names = namesOf(outputDefinitions(kMany));
    count(name, 1, kMany, [&](unsigned int /*i*/) { engine.unregisterOutputParameters(names); });
}

struct Case {
    const char* name;
    void (*run)(const char* name);
};

constexpr Case kCases[] = {
    {"publish-1", publishOne},
    {"publish-1000", [](const char* name) { publishMany(name, 1); }},
    {"publish-1000-orders", [](const char* name) { publishMany(name, 16); }},
    {"update-1000", updateMany},
    {"update-1", updateOne},
    {"register-1000", registerMany},
    {"confirm-1000", confirmMany},
    {"unregister-1000", unregisterMany},
    {"session-set", sessionSet},
    {"session-update-1000", sessionUpdateMany},
    {"session-health-1000", sessionHealth},
    {"session-parameters-1000", sessionParameters},
};

int run(int argc, char** argv) {
    if (argc == 2) {
        for (const Case& one : kCases) {
            if (std::string(argv[1]) == one.name) {
                one.run(one.name);
                return 0;
            }
        }
    }
    std::fprintf(stderr, "Syntax: %s CASE\n", argv[0]);
    for (const Case& one : kCases) {
        std::fprintf(stderr, "  %s\n", one.name);
    }
    return 1;
}

}  // namespace
}  // namespace com_tesk::bench

int main(int argc, char** argv) {
    return com_tesk::bench::run(argc, argv);
}
