// The extension module vxl._vxl. Each source binds one topic; the Python sources of the package check
// arguments and give the classes their public form.
#pragma once

#include <pybind11/functional.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <vxunpack/Cloud.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace vx::python {

namespace py = pybind11;

void bindErrors(py::module_& module);
void bindCloud(py::module_& module);
void bindReader(py::module_& module);
void bindWriter(py::module_& module);
void bindRaster(py::module_& module);
void bindArrow(py::module_& module);
void bindIndex(py::module_& module);

// Whether the interpreter ends and the calling thread can therefore not have its lock any more: Python ends such
// a thread in a way that C++ does not survive.
bool isAbandoned() noexcept;

// Whether the calling thread should return to Python soon, since the interpreter waits for it to end.
bool isAskedToReturn() noexcept;

// Releases the interpreter lock for its lifetime. When the interpreter ends, it first waits for the threads
// that have such an object, a few seconds at most. A thread that comes too late never returns.
class Released
{
public:
    Released();
    ~Released();
    Released(const Released&) = delete;
    Released& operator=(const Released&) = delete;

private:
    PyThreadState* m_state;
};

// A holder of Python objects that any thread may drop.
template <class Objects>
std::shared_ptr<const Objects> shareUnlocked(Objects objects)
{
    return {new Objects(std::move(objects)), [](const Objects* owned) {
                if (isAbandoned())
                    return; // leaked, as the process ends
                const py::gil_scoped_acquire acquired;
                delete owned;
            }};
}

// xmin, xmax, ymin, ymax, zmin, zmax
using BoxTuple = std::tuple<double, double, double, double, double, double>;
// name, NumPy's name of the type such as "u2", scale
using ChannelTuple = std::tuple<std::string, std::string, double>;

Box toBox(const BoxTuple& box);
ChannelTuple toTuple(const Channel& channel);
Channel toChannel(const ChannelTuple& channel);

// Messages that the library gives while the interpreter lock is released, until Python asks for them.
class Warnings
{
public:
    void add(const std::string& message);
    std::vector<std::string> take();

private:
    std::mutex m_mutex;
    std::vector<std::string> m_messages;
};

// A cloud, the arrays that it reads, and the warnings of its files.
struct PythonCloud
{
    std::shared_ptr<const void> arrays; // destroyed after the cloud
    vx::Cloud cloud;
    std::shared_ptr<Warnings> warnings = std::make_shared<Warnings>();

    // Another cloud over the same data.
    PythonCloud with(vx::Cloud other) const { return {arrays, std::move(other), warnings}; }
};

// Passes the progress of an operation, which runs without the interpreter lock, to a Python function, at most
// every 50 ms, and handles signals. If Ctrl-C was pressed, or the function returns False or throws, the
// operation is asked to stop.
class Progress
{
public:
    // `report` is a callable, or None to handle signals only.
    explicit Progress(py::object report) : m_report(std::move(report)) {}
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    bool operator()(double fraction);
    // Throws the exception of the function or of Ctrl-C, if there is one.
    void rethrow();
    // The same; Cancelled if the function returned False.
    void check();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr auto interval = std::chrono::milliseconds(50);

    py::object m_report;
    Clock::time_point m_next; // the first report is not delayed
    bool m_isStopped = false;
    std::exception_ptr m_exception;
};

} // namespace vx::python
