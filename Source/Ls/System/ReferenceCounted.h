#pragma once

#include <windows.h>

#include <utility>

namespace LS::System
{
/// Base of objects shared through CRefPtr. The count starts at 0; the release that brings it back to 0
/// deletes the object. AddRef and Release may be called from any thread. A copy starts its own count.
class CReferenceCounted
{
public:
    virtual ~CReferenceCounted() = default;

    void AddRef() const noexcept { ::InterlockedIncrement(&m_References); }

    void Release() const noexcept
    {
        if (::InterlockedDecrement(&m_References) == 0)
            delete this;
    }

protected:
    CReferenceCounted() = default;
    CReferenceCounted(const CReferenceCounted&) noexcept {}
    CReferenceCounted& operator=(const CReferenceCounted&) noexcept { return *this; }

private:
    mutable LONG m_References = 0;
};

/// Counted pointer to a CReferenceCounted; may be empty. One CRefPtr object belongs to one thread at a
/// time, the object behind it may be shared between threads.
template <class T>
class CRefPtr
{
public:
    CRefPtr() noexcept = default;
    CRefPtr(T* object) noexcept : m_Object(object)
    {
        if (m_Object)
            m_Object->AddRef();
    }
    CRefPtr(const CRefPtr& other) noexcept : CRefPtr(other.m_Object) {}
    CRefPtr(CRefPtr&& other) noexcept : m_Object(std::exchange(other.m_Object, nullptr)) {}
    template <class U>
    CRefPtr(const CRefPtr<U>& other) noexcept : CRefPtr(other.Get())
    {
    }
    ~CRefPtr() { Reset(); }

    CRefPtr& operator=(CRefPtr other) noexcept
    {
        std::swap(m_Object, other.m_Object);
        return *this;
    }

    void Reset() noexcept
    {
        if (T* object = std::exchange(m_Object, nullptr))
            object->Release();
    }

    /// The reference is the caller's, who owes the Release.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(m_Object, nullptr); }

    T* Get() const noexcept { return m_Object; }
    T* operator->() const noexcept { return m_Object; }
    T& operator*() const noexcept { return *m_Object; }
    explicit operator bool() const noexcept { return m_Object != nullptr; }

private:
    T* m_Object = nullptr;
};

template <class T, class... Arguments>
CRefPtr<T> MakeRef(Arguments&&... arguments)
{
    return CRefPtr<T>(new T(std::forward<Arguments>(arguments)...));
}
} // namespace LS::System
