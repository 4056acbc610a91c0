// Runs a program as a process.
#pragma once

#include "support/TemporaryDirectory.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

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
    Program(const char* path, const TemporaryDirectory& directory, const std::vector<std::string>& arguments)
        : m_output(directory / "stdout"), m_errors(directory / "stderr")
    {
        std::vector<char*> argv = {const_cast<char*>(path)};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, directory.path().c_str());
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_output.c_str(), flags, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, m_errors.c_str(), flags, 0644);
        if (posix_spawn(&m_process, path, &actions, nullptr, argv.data(), environ) != 0)
            ADD_FAILURE() << "cannot start " << path;
        posix_spawn_file_actions_destroy(&actions);
    }

    // What it has printed so far.
    std::string output() const { return readFile(m_output); }
    void signal(int number) const { ::kill(m_process, number); }

    // Sends a signal as soon as the program has printed a text, and expects the error of an interrupted run.
    Result interrupt(const std::string& text, int number)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (output().find(text) == std::string::npos && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        signal(number);
        Result result = wait();
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors.rfind("\nInterrupt detected.  Shutting down application...\nError: ", 0), 0u)
            << result.errors;
        EXPECT_NE(result.errors.find("peration cancelled.\n"), std::string::npos) << result.errors;
        return result;
    }

    Result wait() const
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

} // namespace Quillmoran::Testing
