#pragma once

#include "Ls/System/Object.h"
#include "Ls/System/ReferenceCounted.h"
#include "Ls/System/SourceLocation.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace LS::System
{
/// What failed, where, with the thread's last system error at that moment and, optionally, the exception
/// that caused it. Built at the throwing site with LS_HERE and handed to ThrowException:
///
///     ThrowException(CException(L"Failed to create event:", LS_HERE));
///
/// The last error is captured before anything else happens in the constructor, so nothing that can change
/// it may stand between the failing call and the construction. Immutable once built.
class CException : public CReferenceCounted, public CObject
{
public:
    CException(const std::wstring& message, std::string_view function, std::int32_t line,
               std::string_view file);
    /// The message is widened from UTF-8.
    CException(const std::string& message, std::string_view function, std::int32_t line,
               std::string_view file);
    /// Keeps a deep copy of inner.
    CException(const CException& inner, const std::string& message, std::string_view function,
               std::int32_t line, std::string_view file);
    CException(const CException& other);
    CException& operator=(const CException&) = delete;
    ~CException() override;

    /// The full multi-line description of this exception and its chain.
    virtual std::wstring Format() const;
    /// The messages of the chain on one line: "outer.-inner." It is the signature that analytics report.
    virtual std::wstring ShortDescription() const;

    const std::wstring& Message() const { return m_Message; }
    const std::string& Function() const { return m_Function; }
    /// Source path below the source tree, with backslashes.
    const std::string& File() const { return m_File; }
    std::int32_t Line() const { return m_Line; }
    std::uint32_t LastError() const { return m_LastError; }
    /// Null when nothing is nested.
    const CException* Inner() const { return m_Inner.get(); }

private:
    CException(std::uint32_t lastError, std::wstring message, const CException* inner,
               std::string_view function, std::int32_t line, std::string_view file);
    std::wstring Format(std::size_t level) const;

    std::wstring m_Message;
    std::string m_Function;
    std::int32_t m_Line;
    std::string m_File;
    std::uint32_t m_LastError;
    std::unique_ptr<const CException> m_Inner;
};
} // namespace LS::System
