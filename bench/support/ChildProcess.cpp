#include "support/ChildProcess.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Quillmoran::Benchmarks {

namespace {

double toSeconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// CPU time of all processes since the machine started; 0 where the system does not tell.
double machineSeconds()
{
    // cpu user nice system idle iowait irq softirq ...
    std::ifstream file("/proc/stat");
    std::string name;
    double user = 0, nice = 0, system = 0;
    if (!(file >> name >> user >> nice >> system))
        return 0;
    return (user + nice + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Starts the program with its output in a file, and returns its number.
pid_t start(const std::vector<std::string>& words, const std::string& output)
{
    std::vector<std::string> copies = words;
    std::vector<char*> argv;
    argv.reserve(copies.size() + 1);
    for (std::string& word : copies)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    pid_t process = 0;
    const int status = posix_spawnp(&process, argv.front(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (status != 0) {
        errno = status;
        QM_THROW_OS(words.front().c_str());
    }
    return process;
}

} // namespace

Usage runProgram(const std::vector<std::string>& words, const std::string& output)
{
    using Clock = std::chrono::steady_clock;
    const double machineBegin = machineSeconds();
    const Clock::time_point begin = Clock::now();
    const pid_t process = start(words, output);
    int status = 0;
    rusage usage{};
    while (wait4(process, &status, 0, &usage) < 0)
        if (errno != EINTR)
            QM_THROW_OS("wait4");
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    if (status != 0) {
        std::string command;
        for (const std::string& word : words)
            command.append(command.empty() ? "" : " ").append(word);
        QM_THROW(ErrorCode::General, "'%s' failed", command.c_str());
    }
    const double own = toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
    return {elapsed.count(), own, std::max(machineSeconds() - machineBegin - own, 0.0),
            static_cast<double>(usage.ru_maxrss) * 1024};
}

Usage runAgain(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = {"/proc/self/exe"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return runProgram(words);
}

double coresOf(const Usages& usages, double Usage::*seconds)
{
    Usage sum;
    for (const Usage& usage : usages) {
        sum.seconds += usage.seconds;
        sum.*seconds += usage.*seconds;
    }
    return sum.*seconds / sum.seconds;
}

} // namespace Quillmoran::Benchmarks
