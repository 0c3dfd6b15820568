#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace LS::Analytics
{
/// UTC time in calendar fields, with the machine's offset in minutes (UTC minus local time).
struct Moment
{
    std::uint16_t Day = 0;
    std::uint16_t Month = 0;
    std::uint16_t Year = 0;
    std::uint16_t Hour = 0;
    std::uint16_t Minute = 0;
    std::uint16_t Second = 0;
    std::int32_t TimeZoneOffset = 0;
};

/// The collector's two kinds of custom variable; records of another kind are kept and never written.
inline constexpr std::uint32_t CustomVariableDimension = 1;
inline constexpr std::uint32_t CustomVariableMeasure = 2;

struct CustomVariable
{
    std::uint32_t Kind;
    std::wstring Key;
    std::wstring Value;
    /// Written only when from 1 to 5.
    std::int32_t Index;
};

struct VisitorAndSession
{
    std::wstring VisitorId;
    std::wstring SessionId;
    std::wstring ScreenResolution;
    std::wstring OperatingSystem;
    std::vector<CustomVariable> CustomVariables;
};

struct Event
{
    Moment Time;
    std::wstring Category;
    std::wstring Action;
    std::wstring Label;
    std::uint32_t Value = 0;
};

/// What one query string tells: who, when, on what machine, and what happened.
struct Visit
{
    Moment Time;
    std::wstring Application;
    std::wstring Version;
    std::wstring Site;
    std::wstring User;
    std::wstring Partner;
    /// Missing after a visit was refused for an empty argument.
    std::optional<VisitorAndSession> Who;
    std::optional<Event> What;
    std::vector<CustomVariable> CustomVariables;
};
} // namespace LS::Analytics
