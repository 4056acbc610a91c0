// The reference-counted base of every shared object, and the holder that releases.
//
// A class made of Object has a protected constructor and a static create() that returns a count of 1. Put
// that pointer into a Scoped<T> in the same statement; a bare Foo* or const Foo& parameter only borrows.
#pragma once

#include <vxunpack/Export.h>

#include <atomic>
#include <utility>

namespace Quillmoran {

class QM_API Object
{
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    // Both return the new count and may be called from any thread. A count of 0 destroys the object. They are
    // const because holding a shared object does not change what it stands for.
    int retain() const noexcept;
    int release() const noexcept;

protected:
    Object() = default;
    virtual ~Object();

private:
    mutable std::atomic<int> m_count{1};
};

template <class T>
class Scoped
{
public:
    Scoped() = default;
    // Adopts the caller's count.
    explicit Scoped(T* object) noexcept : m_object(object) {}
    Scoped(const Scoped& other) noexcept : m_object(other.m_object) { hold(); }
    Scoped(Scoped&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~Scoped() { drop(); }

    Scoped& operator=(Scoped other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    // A holder with a count of its own.
    static Scoped retained(T* object) noexcept
    {
        Scoped scoped(object);
        scoped.hold();
        return scoped;
    }

    // Replaces the held object, adopting the caller's count of the new one.
    void reset(T* object = nullptr) noexcept { *this = Scoped(object); }
    // Hands the count over to the caller.
    [[nodiscard]] T* detach() noexcept { return std::exchange(m_object, nullptr); }

    T* get() const noexcept { return m_object; }
    T* operator->() const noexcept { return m_object; }
    T& operator*() const noexcept { return *m_object; }
    explicit operator bool() const noexcept { return m_object != nullptr; }

private:
    void hold() const noexcept
    {
        if (m_object)
            m_object->retain();
    }
    void drop() const noexcept
    {
        if (m_object)
            m_object->release();
    }

    T* m_object = nullptr;
};

} // namespace Quillmoran
