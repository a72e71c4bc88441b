#include <algorithm>

#include "tests/model/Model.h"

namespace com_tesk::test {

namespace {

constexpr std::uint32_t kFloat = 1;
constexpr std::uint32_t kInteger = 2;

/// The big-endian number of `width` bytes at `offset`. One byte may be missing at the end of the body and counts as 0.
/// When more are missing, the number is 0.
std::uint32_t numberAt(const std::string& body, std::size_t offset, std::size_t width) {
    if (offset + width - 1 > body.size()) {
        return 0;
    }
    std::uint32_t number = 0;
    for (std::size_t i = offset; i < offset + width; ++i) {
        number = number * 256 + (i < body.size() ? static_cast<unsigned char>(body[i]) : 0U);
    }
    return number;
}

std::uint32_t wordAt(const std::string& body, std::size_t offset) {
    return numberAt(body, offset, 4);
}

/// A name on the wire ends at its first zero byte.
std::string untilZero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

/// How many records there are: as many as announced, but never one that is not whole.
std::size_t recordsIn(const std::string& body, std::size_t countOffset, std::size_t width) {
    const std::size_t first = countOffset + 4;
    return body.size() < first ? 0 : std::min<std::size_t>(wordAt(body, countOffset), (body.size() - first) / width);
}

/// Appends an input's value in a callback. `at`: where its integer flag is, before its bits.
void appendValue(std::string& text, const std::string& name, const std::string& body, std::size_t at) {
    appendItem(text += ' ', name, {wordAt(body, at) != 0 ? kInteger : kFloat, wordAt(body, at + 4), 0});
}

std::string integerFlag(std::uint32_t type) {
    return wireWord(type == kInteger ? 1 : 0);
}

}  // namespace

void Model::receive(const std::string& body) {
    if (body.size() < 12 || body[0] != 4 || body[1] != 2) {
        return;
    }
    switch (numberAt(body, 10, 2)) {
        case 0x0101:
            return confirm(INPUTS, body);
        case 0x0102:
            return confirm(OUTPUTS, body);
        case 0x0003:
            return receiveUpdate(body);
        case 0x0106:
            return receiveVersion(body);
        default:
            return;
    }
}

void Model::confirm(Side side, const std::string& body) {
    std::string confirmed = side == INPUTS ? "inputs confirmed" : "outputs confirmed";
    std::string values = "updated";
    Names toPublishAgain;
    const std::size_t width = side == INPUTS ? 52 : 48;
    const std::size_t count = recordsIn(body, 16, width);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t base = 20 + width * i;
        const std::string name = untilZero(body.substr(base + width - 32, 32));
        const std::uint32_t id = wordAt(body, base);
        const auto found = table(side).entries.find(name);
        if (found == table(side).entries.end()) {
            if (side == OUTPUTS) {
                print("err", "Parameter not found: " + name + "(" + std::to_string(id) + ")");
            }
            continue;
        }
        Entry& entry = found->second;
        entry.id = id;
        table(side).ids[id] = name;
        if (side == INPUTS) {
            appendItem(confirmed += ' ', name, {entry.type, entry.mode});
            appendValue(values, name, body, base + 12);
        } else {
            appendItem(confirmed += ' ', name, {entry.type});
        }
        if (entry.published) {
            toPublishAgain.push_back(name);
        }
    }
    if (side == OUTPUTS) {
        notify(Step::OUTPUTS_CONFIRMED, confirmed);
        return publishAgain(toPublishAgain);
    }
    for (const std::uint32_t callback : std::set<std::uint32_t>(interfaces)) {
        callBack(callback, Step::INPUTS_CONFIRMED, confirmed);
        callBack(callback, Step::INPUTS_UPDATED, values);
    }
}

void Model::publishAgain(const Names& names) {
    Names still;
    for (const std::string& name : names) {
        if (outputs.entries.count(name) != 0 && outputs.entries[name].published) {
            still.push_back(name);
        }
    }
    beginTableChange();
    sendPublication(still, 0);
    endTableChange();
}

void Model::receiveUpdate(const std::string& body) {
    std::string values;
    const std::size_t count = recordsIn(body, 20, 12);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t base = 24 + 12 * i;
        const std::uint32_t id = wordAt(body, base);
        if (id != 0 && inputs.ids.count(id) != 0) {
            appendValue(values, inputs.ids[id], body, base + 4);
        }
    }
    if (!values.empty()) {
        notify(Step::INPUTS_UPDATED, "updated" + values);
    }
}

void Model::receiveVersion(const std::string& body) {
    if (wordAt(body, 148) != 1) {
        return;
    }
    versionText = untilZero(body.substr(16, 128));
    const std::uint32_t announced = wordAt(body, 12) >> 16U;
    if (announced != simulatorId) {
        // Printed by a silent engine too.
        log.push_back("out Simulator ID is now " + std::to_string(announced) + " -> reconnecting under the new id");
        simulatorId = announced < 32768 ? announced : simulatorId;
        reregisterInputs();
        reregisterOutputs();
    }
    protocolVersion = wordAt(body, 144);
    print("out", "Found server version: " + versionText);
    print("out", "Found simulator id: " + std::to_string(announced));
    print("out", "Found protocol version: " + std::to_string(protocolVersion));
}

std::string Model::begin(char code) const {
    return std::string("\x04\x02\x7F\xFF\0\0\0\0\0\x7F\0", 11) + code + wireWord(simulatorId % 0x10000 * 0x10000);
}

std::uint32_t Model::sendRegistration(Side side, const Names& names) {
    std::string records;
    for (const std::string& name : names) {
        const Entry& entry = table(side).entries[name];
        const std::string rate = wireWord(side == OUTPUTS   ? 1200
                                          : entry.mode == 1 ? 12000
                                          : entry.mode == 3 ? 120000
                                                            : 0);
        records += (side == INPUTS ? rate + rate : rate) + integerFlag(entry.type) + wireField(untilZero(name), 32);
    }
    return sendRecords(begin(side == INPUTS ? 1 : 2), names.size(), records);
}

std::uint32_t Model::sendUnregistration(Side side, const std::vector<std::uint32_t>& ids) {
    std::string records;
    for (const std::uint32_t id : ids) {
        records += wireWord(id);
    }
    return sendRecords(begin(side == INPUTS ? 4 : 5), ids.size(), records);
}

std::uint32_t Model::sendPublication(const Names& names, std::uint32_t mode) {
    std::string records;
    for (const std::string& name : names) {
        const Entry& output = outputs.entries[name];
        records += wireWord(output.id);
        if (output.type == kInteger || output.type == kFloat) {
            records += integerFlag(output.type) + wireWord(output.bits);
        }
    }
    return sendRecords(begin(3) + wireWord(mode), names.size(), records);
}

std::uint32_t Model::sendRecords(const std::string& head, std::size_t count, const std::string& records) {
    if (count == 0) {
        return 0;
    }
    const std::uint32_t result = send(1, head + wireWord(static_cast<std::uint32_t>(count)) + records);
    return result == 1 ? 0 : result;
}

std::uint32_t Model::send(std::uint32_t type, const std::string& body) {
    if (!isConnected() || own.isCloseDeferred) {
        return 1;
    }
    if (type == 0) {
        return 3;
    }
    const auto size = static_cast<std::uint32_t>(body.size());
    const bool isControl = type == 2;
    std::string frame = wireWord(size + 32) + wireWord(32) + wireWord(isControl ? 3 : 0) + wireWord(isControl ? 2 : 0) +
                        std::string(15, '\xFF') + (isControl ? '\xFE' : '\xFF') + body;
    if (type == 1 && size >= 9) {
        frame.replace(36, 4, wireWord(size));
    }
    return write(frame);
}

std::uint32_t Model::write(const std::string& frame) {
    happen(Step::WRITING, 0);
    if (writeFailures.empty() || doOthersHoldChange()) {
        log.push_back("sent " + frame);
        return 0;
    }
    const WriteFailure failure = writeFailures.front();
    writeFailures.pop_front();
    print("err", "Error writing to server (" + std::to_string(failure.error) + ") ");
    own.isCloseDeferred = true;
    performDeferredClose();
    return 2;
}

}  // namespace com_tesk::test
