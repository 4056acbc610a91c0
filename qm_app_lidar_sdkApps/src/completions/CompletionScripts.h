// Scripts that complete the command line of a program in a shell, generated from the options of its parser.
#pragma once

#include <string>

namespace Quillmoran {

class QMCmdLine;

namespace CompletionScripts {

std::string forBash(const QMCmdLine& program);
std::string forZsh(const QMCmdLine& program);
std::string forFish(const QMCmdLine& program);

} // namespace CompletionScripts

} // namespace Quillmoran
