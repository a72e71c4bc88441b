// The internal parts, measured one by one without sockets or threads: encoding, decoding, lookup, registration.

#include <benchmark/benchmark.h>

#include "bench/Frames.h"
#include "bench/MemoryEngine.h"
#include "bench/Names.h"

namespace com_tesk::bench {
namespace {

using Entry = CSClientProtocol::OutputParameterEntry;

unsigned int sizeOf(const benchmark::State& state) {
    return static_cast<unsigned int>(state.range(0));
}

/// Converts the figures to figures per value.
void countValues(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void registerOutputs(MemoryEngine& engine, unsigned int count) {
    const auto definitions = outputDefinitions(count);
    engine.registerOutputParameters(definitions.data(), count);
}

void confirmInputs(MemoryEngine& engine, unsigned int count) {
    const auto definitions = inputDefinitions(count);
    engine.registerInputParameters(definitions.data(), count);
    std::vector<host::InputConfirmation> inputs;
    for (unsigned int i = 0; i < count; ++i) {
        inputs.push_back({i + 1, 0, 0, HostValue::real(1.0F), parameterName(i)});
    }
    engine.receive(host::encodeInputsReply(1, inputs));
}

/// The request only: body, frame and a write that does nothing.
void encodePublication(benchmark::State& state) {
    MemoryEngine engine;
    std::vector<Entry> entries(sizeOf(state));
    std::vector<Entry*> batch;
    for (Entry& entry : entries) {
        entry = Entry::of({"", CSClient::TYPE_FLOAT});
        batch.push_back(&entry);
    }
    for ([[maybe_unused]] auto _ : state) {
        engine.sendParameterPublishRequest(batch, CSClientProtocol::PUBLISH_DEFAULT);
    }
    countValues(state);
}
BENCHMARK(encodePublication)->Arg(1)->Arg(1'000);

/// The whole call, including the checks and the lookup of the outputs.
void publish(benchmark::State& state) {
    MemoryEngine engine;
    registerOutputs(engine, sizeOf(state));
    const auto values = parameters(0, sizeOf(state));
    for ([[maybe_unused]] auto _ : state) {
        engine.publishParameters(values.data(), sizeOf(state), CSClientProtocol::PUBLISH_DEFAULT);
    }
    countValues(state);
}
BENCHMARK(publish)->Arg(1)->Arg(1'000);

void decodeUpdate(benchmark::State& state) {
    MemoryEngine engine;
    confirmInputs(engine, sizeOf(state));
    const host::Bytes frame = updateFrame(sizeOf(state));
    for ([[maybe_unused]] auto _ : state) {
        engine.receive(frame);
    }
    countValues(state);
}
BENCHMARK(decodeUpdate)->Arg(1)->Arg(1'000);

/// Two updates with different ids, so that each update differs from the previous one.
void decodeChangingUpdate(benchmark::State& state) {
    MemoryEngine engine;
    const unsigned int count = sizeOf(state);
    confirmInputs(engine, count);
    std::vector<host::InputUpdate> reversed;
    for (std::uint32_t id = count; id > 0; --id) {
        reversed.push_back({id, HostValue::real(1.0F)});
    }
    const host::Bytes first = updateFrame(count);
    const host::Bytes second = host::encodeUpdate(1, reversed);
    for ([[maybe_unused]] auto _ : state) {
        engine.receive(first);
        engine.receive(second);
    }
    state.SetItemsProcessed(state.iterations() * 2 * state.range(0));
}
BENCHMARK(decodeChangingUpdate)->Arg(1'000);

void lookUpByName(benchmark::State& state) {
    MemoryEngine engine;
    registerOutputs(engine, sizeOf(state));
    const auto names = namesOf(outputDefinitions(sizeOf(state)));
    CSClient::Parameter found;
    for ([[maybe_unused]] auto _ : state) {
        for (const std::string& name : names) {
            engine.findPublishedParameter(name, found);
        }
    }
    countValues(state);
}
BENCHMARK(lookUpByName)->Arg(100)->Arg(10'000);

void registerAndUnregister(benchmark::State& state) {
    MemoryEngine engine;
    const auto definitions = outputDefinitions(sizeOf(state));
    const auto names = namesOf(definitions);
    for ([[maybe_unused]] auto _ : state) {
        engine.registerOutputParameters(definitions.data(), sizeOf(state));
        engine.unregisterOutputParameters(names);
    }
    countValues(state);
}
BENCHMARK(registerAndUnregister)->RangeMultiplier(10)->Range(1'000, 100'000)->Unit(benchmark::kMillisecond);

void reregister(benchmark::State& state) {
    MemoryEngine engine;
    const auto definitions = inputDefinitions(sizeOf(state));
    engine.registerInputParameters(definitions.data(), sizeOf(state));
    for ([[maybe_unused]] auto _ : state) {
        engine.reregisterAllInputParameters();
    }
    countValues(state);
}
BENCHMARK(reregister)->RangeMultiplier(10)->Range(1'000, 100'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace com_tesk::bench

BENCHMARK_MAIN();
