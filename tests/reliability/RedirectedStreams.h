#pragma once

#include <functional>
#include <iostream>
#include <streambuf>
#include <utility>

namespace com_tesk::test {

/// Passes each insertion into std::cout and std::cerr to a function, from construction to destruction. Allocates nothing
/// in between.
class RedirectedStreams : private std::streambuf {
  public:
    explicit RedirectedStreams(std::function<void(const char* text, std::size_t size)> forEach =
                                   [](const char* /*text*/, std::size_t /*size*/) {})
        : function(std::move(forEach)), previousOut(std::cout.rdbuf(this)), previousErr(std::cerr.rdbuf(this)) {}
    RedirectedStreams(const RedirectedStreams&) = delete;
    RedirectedStreams& operator=(const RedirectedStreams&) = delete;
    ~RedirectedStreams() override {
        std::cout.rdbuf(previousOut);
        std::cerr.rdbuf(previousErr);
    }

  private:
    int_type overflow(int_type character) override {
        const char text = traits_type::to_char_type(character);
        function(&text, traits_type::eq_int_type(character, traits_type::eof()) ? 0 : 1);
        return traits_type::not_eof(character);
    }
    std::streamsize xsputn(const char* characters, std::streamsize count) override {
        function(characters, static_cast<std::size_t>(count));
        return count;
    }

    const std::function<void(const char*, std::size_t)> function;
    std::streambuf* const previousOut;
    std::streambuf* const previousErr;
};

}  // namespace com_tesk::test
