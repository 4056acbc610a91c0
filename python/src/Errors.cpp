// Errors become the exceptions of vxl._errors; progress and signals.
#include "Bindings.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <unistd.h>
#include <utility>

namespace vx::python {

using namespace Quillmoran;

namespace {

// Atomic, so that a fork finds it usable at any time.
struct NativeCalls
{
    std::atomic<bool> isEnding = false;
    std::atomic<int> count = 0; // objects of the class Released, in the process `process`
    std::atomic<pid_t> process = getpid();

    void enter() noexcept
    {
        const pid_t current = getpid();
        if (process.exchange(current) != current)
            count = 0; // those threads are in the parent
        ++count;
    }
};

NativeCalls& nativeCalls() noexcept
{
    static NativeCalls calls;
    return calls;
}

[[noreturn]] void waitForEnd() noexcept
{
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

// The interpreter ends any other thread that asks for its lock, and the destructors of the process would destroy
// what the thread uses.
void endNativeCalls()
{
    constexpr int maxWaits = 5000;
    nativeCalls().isEnding = true;
    const py::gil_scoped_release released;
    for (int i = 0; i < maxWaits && nativeCalls().process == getpid() && nativeCalls().count > 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool isMainThread() noexcept
{
    // The module is imported before other threads can use it, but not always by the main thread.
    static const unsigned long mainThread = [] {
        const py::gil_scoped_acquire acquired;
        return py::module_::import("threading").attr("main_thread")().attr("ident").cast<unsigned long>();
    }();
    return PyThread_get_thread_ident() == mainThread;
}

} // namespace

void bindErrors(py::module_& module)
{
    isMainThread(); // finds it
    py::module_::import("atexit").attr("register")(py::cpp_function(&endNativeCalls));
    py::register_local_exception_translator([](std::exception_ptr exception) {
        try {
            std::rethrow_exception(std::move(exception));
        } catch (const Error& error) {
            const py::object make = py::module_::import("vxl._errors").attr("make");
            // Messages have text of files, in any encoding.
            const py::str message = py::reinterpret_steal<py::str>(PyUnicode_DecodeUTF8(
                error.what(), static_cast<py::ssize_t>(std::strlen(error.what())), "backslashreplace"));
            const py::object made = make(message, error.error());
            PyErr_SetObject(py::type::handle_of(made).ptr(), made.ptr());
        }
    });

    // Kept for the lifetime of the process, or until the next call.
    static std::unique_ptr<ThreadLimit> limit;
    module.def("set_threads", [](unsigned threads) {
        limit.reset();
        if (threads != 0)
            limit = std::make_unique<ThreadLimit>(threads);
    });
}

bool isAbandoned() noexcept
{
#if PY_VERSION_HEX >= 0x030D0000
    const bool isFinalizing = Py_IsFinalizing() != 0;
#else
    const bool isFinalizing = _Py_IsFinalizing() != 0;
#endif
    return isFinalizing && !isMainThread();
}

bool isAskedToReturn() noexcept
{
    return nativeCalls().isEnding && !isMainThread();
}

Released::Released() : m_state(PyEval_SaveThread())
{
    nativeCalls().enter();
    if (isAskedToReturn()) {
        --nativeCalls().count;
        waitForEnd();
    }
}

Released::~Released()
{
    if (isAbandoned())
        waitForEnd();
    PyEval_RestoreThread(m_state);
    --nativeCalls().count;
}

void Warnings::add(const std::string& message)
{
    const std::lock_guard lock(m_mutex);
    m_messages.push_back(message);
}

std::vector<std::string> Warnings::take()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_messages, {});
}

Progress::~Progress()
{
    const py::gil_scoped_acquire acquired;
    m_report = py::object();
    m_exception = nullptr;
}

bool Progress::operator()(double fraction)
{
    if (m_isStopped || isAskedToReturn())
        return false;
    const auto now = Clock::now();
    if (now < m_next)
        return true;
    const py::gil_scoped_acquire acquired;
    try {
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        m_next = Clock::now() + interval;
        if (m_report.is_none())
            return true;
        const py::object answer = m_report(std::min(std::max(0.0, fraction), 1.0)); // NaN becomes 0
        m_isStopped = !answer.is_none() && !answer.cast<bool>();
    } catch (...) {
        m_isStopped = true;
        m_exception = std::current_exception();
    }
    return !m_isStopped;
}

void Progress::rethrow()
{
    if (m_exception)
        std::rethrow_exception(std::exchange(m_exception, nullptr));
}

void Progress::check()
{
    rethrow();
    if (m_isStopped)
        QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
}

} // namespace vx::python
