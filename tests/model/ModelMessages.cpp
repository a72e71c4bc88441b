#include <algorithm>

#include "tests/model/Model.h"

namespace com_tesk::test {

namespace {

/// The big-endian number of `width` bytes at `offset`. One byte may be missing at the end of the body and counts as 0;
/// where more is missing there is nothing but 0.
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

std::string textAt(const std::string& body, std::size_t offset, std::size_t width) {
    std::string text = body.substr(offset, width);
    const std::size_t end = text.find('\0');
    return end == std::string::npos ? text : text.substr(0, end);
}

/// How many records there are: as many as announced, but never one that is not whole.
std::size_t recordsIn(const std::string& body, std::size_t announced, std::size_t first, std::size_t width) {
    return body.size() < first ? 0 : std::min(announced, (body.size() - first) / width);
}

std::string valueText(const std::string& name, bool isInteger, std::uint32_t bits) {
    return ' ' + escaped(name) + ',' + (isInteger ? "2," : "1,") + std::to_string(bits) + ",0";
}

}  // namespace

void Model::receive(const std::string& body) {
    // A frame without a body is none.
    if ((state != 2 && state != 4) || body.empty()) {
        return;
    }
    if (body.size() < 12 || body[0] != 4 || body[1] != 2) {
        return;
    }
    const std::uint32_t code = numberAt(body, 10, 2);
    if (code == 0x0101) {
        receiveInputConfirmation(body);
    } else if (code == 0x0102) {
        receiveOutputConfirmation(body);
    } else if (code == 0x0003) {
        receiveUpdate(body);
    } else if (code == 0x0106) {
        receiveVersion(body);
    }
}

void Model::receiveInputConfirmation(const std::string& body) {
    std::string confirmed = "inputs confirmed";
    std::string values = "updated";
    const std::size_t count = recordsIn(body, wordAt(body, 16), 20, 52);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t base = 20 + 52 * i;
        const std::string name = textAt(body, base + 20, 32);
        if (inputs.count(name) == 0) {
            continue;
        }
        const std::uint32_t id = wordAt(body, base);
        inputs[name].id = id;
        inputIds[id] = name;
        confirmed +=
            ' ' + escaped(name) + ',' + std::to_string(inputs[name].type) + ',' + std::to_string(inputs[name].mode);
        values += valueText(name, wordAt(body, base + 12) != 0, wordAt(body, base + 16));
    }
    for (const std::uint32_t callback : interfacesNow()) {
        notifyOne(callback, Step::INPUTS_CONFIRMED, confirmed);
        notifyOne(callback, Step::INPUTS_UPDATED, values);
    }
}

void Model::receiveOutputConfirmation(const std::string& body) {
    std::string confirmed = "outputs confirmed";
    std::vector<std::string> again;
    const std::size_t count = recordsIn(body, wordAt(body, 16), 20, 48);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t base = 20 + 48 * i;
        const std::string name = textAt(body, base + 16, 32);
        const std::uint32_t id = wordAt(body, base);
        if (outputs.count(name) == 0) {
            print("err", "Parameter not found: " + name + "(" + std::to_string(id) + ")");
            continue;
        }
        Output& output = outputs[name];
        output.id = id;
        outputIds[id] = {name, output.serial};
        confirmed += ' ' + escaped(name) + ',' + std::to_string(output.type);
        if (output.published) {
            again.push_back(name);
        }
    }
    notify(Step::OUTPUTS_CONFIRMED, confirmed);
    publishAgain(again);
}

void Model::publishAgain(const std::vector<std::string>& names) {
    std::vector<std::string> still;
    for (const std::string& name : names) {
        if (outputs.count(name) != 0 && outputs[name].published) {
            still.push_back(name);
        }
    }
    beginTableChange();
    sendPublication(still, 0);
    endTableChange();
}

void Model::receiveUpdate(const std::string& body) {
    std::string values;
    const std::size_t count = recordsIn(body, wordAt(body, 20), 24, 12);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t base = 24 + 12 * i;
        const std::uint32_t id = wordAt(body, base);
        if (id != 0 && inputIds.count(id) != 0) {
            values += valueText(inputIds[id], wordAt(body, base + 4) != 0, wordAt(body, base + 8));
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
    versionText = textAt(body, 16, 128);
    const std::uint32_t announced = wordAt(body, 12) >> 16U;
    if (announced != simulatorId) {
        // Printed by a silent engine too.
        log.push_back("out Simulator ID is now " + std::to_string(announced) + " -> reconnecting under the new id");
        if (announced < 32768) {
            simulatorId = announced;
        }
        reregisterInputs();
        reregisterOutputs();
    }
    protocolVersion = wordAt(body, 144);
    print("out", "Found server version: " + versionText);
    print("out", "Found simulator id: " + std::to_string(announced));
    print("out", "Found protocol version: " + std::to_string(protocolVersion));
}

}  // namespace com_tesk::test
