#include "session/Log.h"

#include <unistd.h>

#include <string>

namespace com_tesk::session {

void Log::write(Session::Level level, std::string_view text) const {
    if (function) {
        function(level, text);
        return;
    }
    if (level == Session::Level::WARNING || level == Session::Level::FAULT) {
        std::string line = "csclient: ";
        line.append(text).push_back('\n');
        // One call for the line, so that lines of several threads do not mix.
        static_cast<void>(::write(STDERR_FILENO, line.data(), line.size()) == 0);
    }
}

}  // namespace com_tesk::session
