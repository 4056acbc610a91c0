#include "support/ChildProcess.h"

#include "platform/Base.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
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

} // namespace

Usage runAgain(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = {"again"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    using Clock = std::chrono::steady_clock;
    const double machineBegin = machineSeconds();
    const Clock::time_point begin = Clock::now();
    pid_t process = 0;
    errno = posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, argv.data(), environ);
    if (errno != 0)
        QM_THROW_OS("/proc/self/exe");
    int status = 0;
    rusage usage{};
    while (wait4(process, &status, 0, &usage) < 0)
        if (errno != EINTR)
            QM_THROW_OS("wait4");
    const std::chrono::duration<double> elapsed = Clock::now() - begin;
    if (status != 0)
        QM_THROW(-1, "'%s' failed", arguments.front().c_str());
    const double own = toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
    return {elapsed.count(), own, std::max(machineSeconds() - machineBegin - own, 0.0),
            static_cast<double>(usage.ru_maxrss) * 1024};
}

} // namespace Quillmoran::Benchmarks
