// The skeleton of all programs: options, threads, error reports, exit status.
#pragma once

#include "cli/QMCmdLine.h"
#include <vxunpack/IO.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

namespace Quillmoran {

// A program declares its options in the constructor and works in work().
class Program
{
public:
    enum class Syntax
    {
        Basic,   // as vxunpack always had it
        Extended // plain arguments, double dashes, suggestions, strict numbers
    };

    // The exit status of errors. A program whose status 1 is a result hides this constant by one of its own
    // and passes it to the constructor.
    static constexpr int errorStatus = 1;

    virtual ~Program() = default;

    // Ends the process on usage errors and after help or version texts.
    void parse(int argc, const char* const* argv);
    const QMCmdLine& getCmdLine() const noexcept { return m_cmdLine; }
    // Works with the number of threads that the options ask for, and returns whether all went well. Failures
    // are thrown.
    bool run();

protected:
    // Sets the version and declares the options that every program has.
    Program(const char* name, const char* description, Syntax syntax = Syntax::Extended,
            int status = errorStatus);

    // Usage errors that the parser cannot find.
    virtual void checkOptions() const {}
    virtual bool work() = 0;

    // The number of threads that the options ask for.
    unsigned getNumThreads() const;
    // The end of the line that ends a run: "SECONDS s, RATE points/s".
    std::string describeSpeed(std::int64_t numPoints) const;
    // Prints how much remote files were read, once, if there was one and the run is verbose.
    void printTraffic();
    // Prints this line, for runs that read: "POINTS points, BYTES bytes, SECONDS s, RATE points/s".
    void printRun(std::FILE* stream, std::int64_t numPoints, std::int64_t numBytes) const;

    QMCmdLine m_cmdLine;

private:
    const Syntax m_syntax;
    bool m_hasPrintedTraffic = false;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
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

// Whether the run prints nothing but errors: the option "q"/"quiet".
bool isQuiet() noexcept;

// These print "Warning: ..." and "Error: ..." on standard error, control characters escaped. The text names the
// file concerned. Several threads may call them at the same time.
void warn(const std::string& text);
void printError(const char* text);

// For programs that write files: makes writing to a closed pipe, or beyond the size limit of files, an error
// instead of a signal that ends the process.
void ignoreWriteSignals();

// An output for data: a path, or a stream with a name for messages.
struct DataOutput
{
    std::string name;
    Scoped<IO> stream; // sequential; null for a path
};
// Opens the output with a name that a user gave. "-" is standard output, as is the name of the same file, such
// as /dev/stdout. What the program prints then goes to standard error, so that it does not mix with data. If
// standard output is a file with a name, and its format is not `inOrder`, that name is returned.
DataOutput openOutput(const std::string& name, bool inOrder);

// Ends a report on standard output. Throws General "cannot write the report" if any of it was lost.
void finishReport();

} // namespace Utils

} // namespace Quillmoran
