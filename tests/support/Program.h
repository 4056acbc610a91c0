// Runs programs as processes in a directory of the test, as their users do.
#pragma once

#include "support/RunTimes.h"
#include "support/Test.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Quillmoran::Testing {

struct Result
{
    int status; // exit status, or minus the signal that ended the program
    std::string output;
    std::string errors;
};

// A program that runs in a directory; standard output and standard error go to files there.
class Program
{
public:
    Program(const std::string& path, const TemporaryDirectory& directory, const Strings& arguments)
        : m_output(directory / "stdout"), m_errors(directory / "stderr")
    {
        std::vector<char*> argv = {const_cast<char*>(path.c_str())};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, directory.path().c_str());
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_output.c_str(), flags, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, m_errors.c_str(), flags, 0644);
        if (posix_spawn(&m_process, path.c_str(), &actions, nullptr, argv.data(), environ) != 0)
            ADD_FAILURE() << "cannot start " << path;
        posix_spawn_file_actions_destroy(&actions);
    }

    // Never signals a group of processes, as 0 and -1 would.
    void signal(int number) const
    {
        if (m_process > 0)
            ::kill(m_process, number);
    }

    Result wait() const
    {
        Result result = waitForAll();
        result.output = withoutTimes(result.output);
        return result;
    }
    // The output has the times of the run, too.
    Result waitForAll() const
    {
        int status = 0;
        waitpid(m_process, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), readFile(m_output),
                readFile(m_errors)};
    }

private:
    std::string m_output, m_errors;
    pid_t m_process = 0;
};

// Commands are words separated by blanks, the first one a program's name; '' is an empty word.
class ProgramTest : public testing::Test
{
protected:
    Program start(const std::string& command) const
    {
        std::istringstream stream(command);
        Strings words;
        for (std::string word; stream >> word;)
            words.push_back(word == "''" ? "" : word);
        return {PROGRAMS "/" + words.at(0), directory, {words.begin() + 1, words.end()}};
    }
    Result run(const std::string& command) const { return start(command).wait(); }
    Result shell(const std::string& line) const
    {
        return Program("/bin/sh", directory, {"-c", "PATH=" PROGRAMS ":$PATH; " + line}).wait();
    }
    // Returns the output of a run that succeeds with these messages on standard error.
    std::string succeed(const std::string& command, const std::string& messages = "") const
    {
        const Result result = run(command);
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_EQ(result.errors, messages) << command;
        return result.output;
    }
    void expectError(const std::string& command, const std::string& message) const
    {
        const Result result = run(command);
        EXPECT_EQ(result.status, 1) << command;
        EXPECT_EQ(result.errors, "Error: " + message + '\n') << command;
    }
    bool exists(const std::string& name) const { return std::filesystem::exists(directory / name); }

    const TemporaryDirectory directory;
};

} // namespace Quillmoran::Testing
