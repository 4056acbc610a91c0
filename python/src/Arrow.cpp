// Tables as streams of the Arrow C data interface, without a copy and without Arrow's libraries.
#include "Bindings.h"

#include <cstring>
#include <utility>

extern "C" {

// The structures of Arrow's C stream interface; each side declares them.
struct ArrowSchema
{
    const char* format;
    const char* name;
    const char* metadata;
    std::int64_t flags;
    std::int64_t n_children;
    ArrowSchema** children;
    ArrowSchema* dictionary;
    void (*release)(ArrowSchema*);
    void* private_data;
};

struct ArrowArray
{
    std::int64_t length;
    std::int64_t null_count;
    std::int64_t offset;
    std::int64_t n_buffers;
    std::int64_t n_children;
    const void** buffers;
    ArrowArray** children;
    ArrowArray* dictionary;
    void (*release)(ArrowArray*);
    void* private_data;
};

struct ArrowArrayStream
{
    int (*get_schema)(ArrowArrayStream*, ArrowSchema*);
    int (*get_next)(ArrowArrayStream*, ArrowArray*);
    const char* (*get_last_error)(ArrowArrayStream*);
    void (*release)(ArrowArrayStream*);
    void* private_data;
};
}

namespace vx::python {

namespace {

// Columns that streams, schemas and arrays share. Their consumers release them in any thread.
struct Columns
{
    std::vector<std::string> names;
    std::vector<const char*> formats;
    std::vector<py::array> arrays;
    std::int64_t numPoints = 0;
};

using Shared = std::shared_ptr<const Columns>;

const char* formatOf(const py::array& array)
{
    constexpr std::pair<const char*, const char*> formats[] = {{"b", "c"}, {"B", "C"}, {"h", "s"}, {"H", "S"},
                                                               {"i", "i"}, {"I", "I"}, {"l", "l"}, {"L", "L"},
                                                               {"f", "f"}, {"d", "g"}};
    const char type = array.dtype().char_();
    for (const auto& [numpy, arrow] : formats)
        if (type == *numpy)
            return arrow;
    throw py::type_error("a column has a type that Arrow does not have");
}

// A parent, whose children are released with it, and what they refer to.
template <class Node>
struct Family
{
    Shared columns;
    std::vector<Node> nodes;
    std::vector<Node*> pointers;
    std::vector<std::array<const void*, 2>> buffers;
};

template <class Node>
void releaseChild(Node* node)
{
    node->release = nullptr;
}

template <class Node>
void releaseParent(Node* node)
{
    auto* const family = static_cast<Family<Node>*>(node->private_data);
    for (Node& child : family->nodes)
        if (child.release)
            child.release(&child);
    delete family;
    node->release = nullptr;
}

template <class Node>
Family<Node>* makeFamily(const Shared& columns)
{
    const std::size_t count = columns->names.size();
    auto family = std::make_unique<Family<Node>>();
    family->columns = columns;
    family->nodes.resize(count);
    family->buffers.resize(count + 1);
    for (Node& child : family->nodes)
        family->pointers.push_back(&child);
    return family.release();
}

void exportSchema(const Shared& columns, ArrowSchema* out)
{
    auto* const family = makeFamily<ArrowSchema>(columns);
    for (std::size_t i = 0; i < family->nodes.size(); ++i)
        family->nodes[i] = {columns->formats[i],
                            columns->names[i].c_str(),
                            nullptr,
                            0,
                            0,
                            nullptr,
                            nullptr,
                            releaseChild<ArrowSchema>,
                            nullptr};
    *out = {"+s",
            "",
            nullptr,
            0,
            static_cast<std::int64_t>(family->nodes.size()),
            family->pointers.data(),
            nullptr,
            releaseParent<ArrowSchema>,
            family};
}

void exportArray(const Shared& columns, ArrowArray* out)
{
    auto* const family = makeFamily<ArrowArray>(columns);
    for (std::size_t i = 0; i < family->nodes.size(); ++i) {
        family->buffers[i] = {nullptr, columns->arrays[i].data()}; // no validity bitmap: no nulls
        family->nodes[i] = {
            columns->numPoints,       0,      0, 2, 0, family->buffers[i].data(), nullptr, nullptr,
            releaseChild<ArrowArray>, nullptr};
    }
    *out = {columns->numPoints,
            0,
            0,
            1,
            static_cast<std::int64_t>(family->nodes.size()),
            family->buffers.back().data(),
            family->pointers.data(),
            nullptr,
            releaseParent<ArrowArray>,
            family};
}

struct Stream
{
    Shared columns;
    bool isDone = false;
};

template <class Export>
int guarded(const Export& exportTo)
{
    try {
        exportTo();
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

py::capsule toStream(const std::vector<std::string>& names, const std::vector<py::array>& arrays)
{
    Columns columns{names, {}, arrays};
    for (const py::array& array : arrays) {
        columns.formats.push_back(formatOf(array));
        columns.numPoints = array.size();
    }
    const Shared shared = shareUnlocked(std::move(columns));
    auto stream = std::make_unique<ArrowArrayStream>();
    stream->get_schema = [](ArrowArrayStream* self, ArrowSchema* out) {
        return guarded([&] { exportSchema(static_cast<Stream*>(self->private_data)->columns, out); });
    };
    stream->get_next = [](ArrowArrayStream* self, ArrowArray* out) {
        return guarded([&] {
            auto* const state = static_cast<Stream*>(self->private_data);
            *out = {}; // without a release function: the end
            if (!std::exchange(state->isDone, true))
                exportArray(state->columns, out);
        });
    };
    stream->get_last_error = [](ArrowArrayStream*) -> const char* { return nullptr; };
    stream->release = [](ArrowArrayStream* self) {
        delete static_cast<Stream*>(self->private_data);
        self->release = nullptr;
    };
    stream->private_data = new Stream{shared};
    return py::capsule(stream.release(), "arrow_array_stream", [](PyObject* capsule) {
        auto* const owned =
            static_cast<ArrowArrayStream*>(PyCapsule_GetPointer(capsule, "arrow_array_stream"));
        if (owned->release) // unless a consumer has taken over its contents
            owned->release(owned);
        delete owned;
    });
}

} // namespace

void bindArrow(py::module_& module)
{
    module.def("arrow_stream", toStream);
}

} // namespace vx::python
