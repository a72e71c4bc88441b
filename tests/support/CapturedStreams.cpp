#include "tests/support/CapturedStreams.h"

#include <iostream>

namespace com_tesk::test {

CapturedStreams::CapturedStreams()
    : previousOut(std::cout.rdbuf(&outBuffer)), previousErr(std::cerr.rdbuf(&errBuffer)) {}

CapturedStreams::~CapturedStreams() {
    std::cout.rdbuf(previousOut);
    std::cerr.rdbuf(previousErr);
}

std::string CapturedStreams::Buffer::text() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return captured;
}

int CapturedStreams::Buffer::insertions() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return insertionCount;
}

bool CapturedStreams::Buffer::waitFor(const std::string& part, std::chrono::milliseconds bound) const {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, bound, [this, &part] { return captured.find(part) != std::string::npos; });
}

CapturedStreams::Buffer::int_type CapturedStreams::Buffer::overflow(int_type character) {
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        const char single = traits_type::to_char_type(character);
        xsputn(&single, 1);
    }
    return traits_type::not_eof(character);
}

std::streamsize CapturedStreams::Buffer::xsputn(const char* characters, std::streamsize count) {
    const std::lock_guard<std::mutex> lock(mutex);
    captured.append(characters, static_cast<std::size_t>(count));
    ++insertionCount;
    changed.notify_all();
    return count;
}

}  // namespace com_tesk::test
