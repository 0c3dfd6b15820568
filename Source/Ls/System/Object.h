#pragma once

namespace LS::System
{
/// Root of the foundation's polymorphic objects.
class CObject
{
public:
    virtual ~CObject() = default;

protected:
    CObject() = default;
    CObject(const CObject&) = default;
    CObject& operator=(const CObject&) = default;
};
} // namespace LS::System
