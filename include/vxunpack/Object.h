// The reference-counted base of all shared objects, and the smart pointer for it.
//
// A class derived from Object has a static create(), which returns a new object with a count of 1, owned by
// the caller. Put it into a Scoped<T> in the same statement:
//
//   const Scoped<VX7PointReader> reader(VX7PointReader::create());
//
// A function with a parameter Foo* or const Foo& borrows the object; it retains the object if it keeps it.
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
    // const because holding an object does not change it.
    int retain() const noexcept;
    int release() const noexcept;

protected:
    Object() = default;
    virtual ~Object();

private:
    mutable std::atomic<int> m_count{1};
};

// Owns one count of an object and releases it when it is destroyed. May be empty.
template <class T>
class Scoped
{
public:
    Scoped() = default;
    // Takes over the caller's count.
    explicit Scoped(T* object) noexcept : m_object(object) {}
    Scoped(const Scoped& other) noexcept : m_object(other.m_object) { hold(); }
    Scoped(Scoped&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~Scoped() { drop(); }

    Scoped& operator=(Scoped other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    // Retains the object, which may be null.
    static Scoped retained(T* object) noexcept
    {
        Scoped scoped(object);
        scoped.hold();
        return scoped;
    }

    // Releases the object and takes over the caller's count of the new one.
    void reset(T* object = nullptr) noexcept { *this = Scoped(object); }
    // Passes the count to the caller, who must release it.
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
