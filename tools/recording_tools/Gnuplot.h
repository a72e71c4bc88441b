#pragma once

#include <functional>

#include "tools/recording_tools/OutputFile.h"
#include "tools/recording_tools/Plot.h"

namespace com_tesk::recording {

/// Runs gnuplot, and writes what it draws into the file. Blocks until gnuplot has ended, for at most five minutes. Its
/// script and the values are files without a name, so that nothing is left over, whatever ends the program.
/// @param pause  is called at least 20 times a second. An exception of it ends gnuplot.
/// @throws std::runtime_error  gnuplot is not installed, has failed, or has not ended.
/// @throws std::system_error   the temporary files cannot be written.
void draw(const Plot& plot, const OutputFile& file, const std::function<void()>& pause);

}  // namespace com_tesk::recording
