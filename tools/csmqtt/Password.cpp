#include "tools/csmqtt/Password.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace com_tesk::mqtt {

std::string readPassword(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw std::runtime_error("cannot read " + path + ": " + std::generic_category().message(errno));
    }
    if ((status.st_mode & S_IRWXO) != 0) {
        throw std::runtime_error("other users can access " + path + "; run: chmod o= " + path);
    }
    if (S_ISFIFO(status.st_mode)) {
        throw std::runtime_error("cannot read " + path + ": it is a pipe");  // Opening it could block.
    }
    std::ifstream stream(path);
    if (!stream) {
        throw std::runtime_error("cannot read " + path + ": " + std::generic_category().message(errno));
    }
    std::string line;
    std::getline(stream, line);
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

}  // namespace com_tesk::mqtt
