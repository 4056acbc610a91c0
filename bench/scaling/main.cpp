// How the programs scale: records runs on one thread and schedules their tasks on 1 to 64 cores.
//
//   scaling FILE.las DIRECTORY [ROUNDS [JOB ...]]
//
// Writes FILE.las to the directory in the other formats first. With ROUNDS, the runs are also timed on the cores
// that there are: the fastest of ROUNDS runs. Without a JOB, all.
#include "scaling/Recorder.h"
#include "scaling/Simulation.h"
#include <vxunpack/Cloud.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sched.h>
#include <tbb/global_control.h>
#include <thread>

namespace Quillmoran {
namespace {

constexpr unsigned coreCounts[] = {1, 2, 4, 8, 16, 32, 64};
constexpr unsigned unlimitedCores = 512;

struct Job
{
    const char* name;
    const char* input;  // ending
    const char* output; // ending, or a file
    const char* format = "";
};

constexpr Job jobs[] = {
    {"null", ".vxl", "null"},
    {"text", ".vxl", ".txt"},
    {"LAS", ".vxl", ".las"},
    {"LAS, to a void", ".vxl", "/dev/null", "las"},
    {"LAZ", ".vxl", ".laz"},
    {"LAZ to null", ".laz", "null"},
    {"vxpack from LAS", ".las", ".vxl"},
    {"vxpack from LAZ", ".laz", ".vxl"},
};

// The files of the jobs.
struct Files
{
    std::string las;
    std::filesystem::path directory;

    std::string input(const std::string& ending) const
    {
        return ending == ".las" ? las : (directory / ("input" + ending)).string();
    }
    std::string output(const std::string& name) const
    {
        return name[0] == '.' ? (directory / ("output" + name)).string() : name;
    }
};

void run(const Job& job, const Files& files, unsigned threads)
{
    vx::write(files.output(job.output), vx::open(files.input(job.input)),
              {.threads = threads, .format = job.format});
}

// Restricts this thread, and those that it starts, to some of its cores.
class CoreLimit
{
public:
    explicit CoreLimit(unsigned cores)
    {
        sched_getaffinity(0, sizeof m_all, &m_all);
        cpu_set_t some;
        CPU_ZERO(&some);
        for (int cpu = 0; cpu < CPU_SETSIZE && static_cast<unsigned>(CPU_COUNT(&some)) < cores; ++cpu)
            if (CPU_ISSET(cpu, &m_all))
                CPU_SET(cpu, &some);
        sched_setaffinity(0, sizeof some, &some);
    }
    ~CoreLimit() { sched_setaffinity(0, sizeof m_all, &m_all); }
    CoreLimit(const CoreLimit&) = delete;
    CoreLimit& operator=(const CoreLimit&) = delete;

private:
    cpu_set_t m_all;
};

double measure(const Job& job, const Files& files, unsigned cores, unsigned rounds)
{
    const CoreLimit limit(cores);
    double least = HUGE_VAL;
    for (unsigned round = 0; round < rounds; ++round) {
        const auto begin = std::chrono::steady_clock::now();
        run(job, files, cores);
        least =
            std::min(least, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    return least;
}

void printRow(const char* name, const std::vector<double>& values, const char* format)
{
    std::printf("  %-12s", name);
    for (const double value : values)
        std::printf(format, value);
    std::printf("\n");
}

void scale(const Job& job, const Files& files, unsigned rounds)
{
    std::vector<double> work, seconds, speedUps, efficiencies, measured, errors;
    RecordedWork last;
    double longest = 0;
    run(job, files, 1); // has read the files
    for (const unsigned cores : coreCounts) {
        // The program divides its work for `cores` threads, but has one.
        const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
        const RecordedRun recorded = Recorder::record([&] { run(job, files, cores); });
        last = measureWork(recorded);
        if (std::abs(simulate(recorded, 1) - last.all) > 1e-6 * last.all)
            throw std::logic_error("one core does not take the time of all tasks");
        longest = simulate(recorded, unlimitedCores);
        seconds.push_back(simulate(recorded, cores));
        // Within one recording, since the speed of the machine may change.
        work.push_back(last.all);
        speedUps.push_back(work.back() / seconds.back());
        efficiencies.push_back(speedUps.back() / cores);
    }
    for (unsigned cores = 1; rounds != 0 && cores <= std::thread::hardware_concurrency(); cores *= 2) {
        measured.push_back(measure(job, files, cores, rounds));
        errors.push_back(100 * (seconds[errors.size()] / measured.back() - 1));
    }
    std::printf("\n%s: at 64 cores the main thread has %.1f %% of the work, the writer's thread %.1f %%, the "
                "longest chain of tasks %.1f %%\n",
                job.name, 100 * last.main / last.all, 100 * last.lane / last.all, 100 * longest / last.all);
    printRow("cores", {std::begin(coreCounts), std::end(coreCounts)}, "%8.0f");
    printRow("CPU s", work, "%8.3f");
    printRow("seconds", seconds, "%8.3f");
    printRow("speed-up", speedUps, "%8.2f");
    printRow("efficiency", efficiencies, "%8.2f");
    if (rounds != 0) {
        printRow("measured", measured, "%8.3f");
        printRow("error, %", errors, "%+8.1f");
    }
    std::fflush(stdout);
}

// Schedules of known length.
void verifySimulation()
{
    using Step = RecordedStep;
    constexpr std::uint64_t second = 1000000000;
    // Four tasks of a second each, a background task and something after them.
    RecordedRun loop;
    loop.tasks.resize(6);
    for (std::uint64_t task = 1; task <= 5; ++task)
        loop.tasks[task] = {{{Step::RUN, 0, second}}, task == 5 ? 5u : 1u, task == 5 ? 5u : 1u};
    loop.tasks[0].steps = {
        {Step::ADD, 5, 1}, {Step::ADD, 1, 4}, {Step::WAIT, 1, 4}, {Step::WAIT, 5, 1}, {Step::RUN, 0, second}};
    // Three slices, which take a second to fill and two to write; there are two.
    RecordedRun queue;
    queue.tasks.resize(1);
    for (std::uint64_t slice = 0; slice < 3; ++slice) {
        if (slice >= 2)
            queue.tasks[0].steps.push_back({Step::LANE_WAIT, 1, slice - 1});
        queue.tasks[0].steps.push_back({Step::RUN, 0, second});
        queue.tasks[0].steps.push_back({Step::LANE_ADD, 1, 1});
        queue.lanes[1].push_back({{{Step::RUN, 0, 2 * second}}});
    }
    queue.tasks[0].steps.push_back({Step::LANE_WAIT, 1, 3});
    const struct
    {
        const RecordedRun& run;
        unsigned cores;
        double seconds;
    } known[] = {{loop, 1, 6}, {loop, 2, 4}, {loop, 5, 2}, {queue, 1, 9}, {queue, 2, 7}};
    for (const auto& [run, cores, seconds] : known)
        if (std::abs(simulate(run, cores) - seconds) > 1e-9)
            throw std::logic_error("a simulation takes " + std::to_string(simulate(run, cores)) + " s, not " +
                                   std::to_string(seconds));
}

int main(const std::vector<std::string>& words)
{
    if (words.size() < 2) {
        std::fprintf(stderr, "usage: scaling FILE.las DIRECTORY [ROUNDS [JOB ...]]\n");
        return 1;
    }
    verifySimulation();
    const Files files{words[0], words[1]};
    const unsigned rounds = words.size() > 2 ? static_cast<unsigned>(std::stoul(words[2])) : 0;
    for (const char* const ending : {".vxl", ".laz"})
        vx::write(files.input(ending), vx::open(files.las));
    for (const Job& job : jobs)
        if (words.size() <= 3 || std::find(words.begin() + 3, words.end(), job.name) != words.end())
            scale(job, files, rounds);
    return 0;
}

} // namespace
} // namespace Quillmoran

int main(int argc, char** argv)
{
    try {
        return Quillmoran::main({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
