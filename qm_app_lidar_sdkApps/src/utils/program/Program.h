// The skeleton of all programs: options, threads, error reports, exit status.
#pragma once

#include "cli/QMCmdLine.h"
#include <vxunpack/IO.h>

#include <functional>
#include <string>

namespace Quillmoran {

// A program declares its options in the constructor and works in work().
class Program
{
public:
    // The exit status of errors. A program whose status 1 is a result hides this constant by one of its own
    // and passes it to the constructor.
    static constexpr int errorStatus = 1;

    virtual ~Program() = default;

    // Ends the process on usage errors and after help or version texts.
    void parse(int argc, const char* const* argv);
    // Works with the number of threads that the options ask for, and returns whether all went well. Failures
    // are thrown.
    bool run();

protected:
    // Sets the version and declares the options that every program has.
    Program(const char* name, const char* description, int status = errorStatus);

    // Usage errors that the parser cannot find.
    virtual void checkOptions() const {}
    virtual bool work() = 0;

    QMCmdLine m_cmdLine;
};

namespace Utils {

// Runs a program and returns its exit status: 0 if `run` returned true, 1 if it returned false. Prints
// exceptions as "Error: ..." on standard error and returns `errorStatus`; no other code catches an exception
// that ends the run.
int runProgram(const std::function<bool()>& run, int errorStatus = Program::errorStatus);

// The main() of a program.
template <class SomeProgram>
int runProgram(int argc, const char* const* argv)
{
    return runProgram(
        [argc, argv] {
            SomeProgram program;
            program.parse(argc, argv);
            return program.run();
        },
        SomeProgram::errorStatus);
}

// Prints "Warning: ..." on standard error, control characters escaped. The text names the file concerned.
void warn(const std::string& text);

// For programs that write files: makes writing to a closed pipe, or beyond the size limit of files, an error
// instead of a signal that ends the process.
void ignoreWriteSignals();

// Whether the path names the file that is standard output, as /dev/stdout does.
bool isStandardOutput(const char* path);
// Redirects what the program prints to standard error, so that it does not mix with data. Returns a
// sequential IO that writes to the former standard output.
Scoped<IO> divertStandardOutput(const char* name);

// Ends a report on standard output. Throws General "cannot write the report" if any of it was lost.
void finishReport();

} // namespace Utils

} // namespace Quillmoran
