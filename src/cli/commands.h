#pragma once

#include "cli/commandline.h"

namespace klangor {

// The commands of the table in commandline.cpp.
int runCheck(const CommandArguments &arguments, Console &console);
int runConvert(const CommandArguments &arguments, Console &console);
int runProjectShow(const CommandArguments &arguments, Console &console);
int runProjectUnpack(const CommandArguments &arguments, Console &console);
int runProjectPack(const CommandArguments &arguments, Console &console);
int runLoudness(const CommandArguments &arguments, Console &console);
int runProjectNormalize(const CommandArguments &arguments, Console &console);

// A level in dB as the command line writes it: "-23.0", "-inf" for none.
QString levelField(double db);

} // namespace klangor
