#include "tools/recording_tools/CsvExport.h"

#include "tools/Utc.h"
#include "tools/recording_tools/Texts.h"
#include "tools/recording_tools/Values.h"

namespace com_tesk::recording {

namespace {

constexpr std::size_t kPieceSize = 65'536;

void appendField(std::string& text, const std::string& field) {
    if (field.find_first_of(",\"\r\n") == std::string::npos) {
        text += field;
        return;
    }
    text += '"';
    for (const char character : field) {
        text.append(character == '"' ? 2 : 1, character);
    }
    text += '"';
}

}  // namespace

void writeCsv(Reading& reading, const Write& write) {
    const auto began = beginOf(reading.header());
    std::string text = "time,utc,connection,direction,name,value,type\r\n";
    while (const auto entry = reading.next()) {
        std::string begin;
        forEachValue(*entry, [&](Source source, const NamedValue& value) {
            if (begin.empty()) {
                begin = secondsOf(entry->time) + ',' + tools::utcOf(began + entry->time) + ',' +
                        std::to_string(entry->connection) + ',';
            }
            text += begin;
            text += source == Source::RECEIVED ? "update," : "publish,";
            appendField(text, nameOf(value));
            text += ',';
            text += textOf(value.value);
            text += value.value.isInteger() ? ",integer\r\n" : ",float\r\n";
        });
        if (text.size() >= kPieceSize) {
            write(text);
            text.clear();
        }
    }
    write(text);
}

}  // namespace com_tesk::recording
