// Programs as their users run them.
#pragma once

#include "support/TemporaryDirectory.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Quillmoran::Testing {

// A running program whose two outputs go to files of the directory.
class Program
{
public:
    struct Result
    {
        int status; // exit status, or minus the signal that ended the program
        std::string output;
        std::string errors;
    };

    Program(const char* path, const TemporaryDirectory& directory, const std::vector<std::string>& arguments)
        : m_output(directory / "stdout"), m_errors(directory / "stderr")
    {
        std::vector<char*> argv = {const_cast<char*>(path)};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_output.c_str(), flags, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, m_errors.c_str(), flags, 0644);
        const int failure = posix_spawn(&m_process, path, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (failure != 0)
            throw std::runtime_error(std::string("cannot start ") + path);
    }

    void signal(int number) const { ::kill(m_process, number); }

    Result wait()
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
