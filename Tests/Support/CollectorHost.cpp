#include "Tests/Support/CollectorHost.h"

#include "Ls/System/String/Convert.h"

#include <cctype>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace Tests
{
using Json = nlohmann::ordered_json;

/// "%XX" is one byte. Bytes that are no UTF-8 are then characters told by their low 8 bits, and become "?" as
/// control characters do, which strict JSON has no room for.
static std::string PercentDecode(const std::string& text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::string digits = byte == '%' ? text.substr(i + 1, 2) : "";
        if (byte == '%' ? digits.size() != 2 || digits.find_first_not_of("0123456789ABCDEF") < 2
                        : byte <= 0x7F && !std::isalnum(byte) && !std::strchr("-_.~", byte))
            throw std::runtime_error("not encoded at " + text.substr(i));
        bytes += byte == '%' ? static_cast<char>(std::stoi(digits, nullptr, 16)) : text[i];
        i += digits.size();
    }
    std::wstring characters = LS::AnsiToWide(bytes);
    for (wchar_t& c : characters)
        c = c < 0x20 || c == 0xFFFD ? L'?' : c;
    return LS::WideToAnsi(characters);
}

/// Within a day of now: day and month in each other's place are so on the 12 days only when they are equal.
static bool IsRecent(const SYSTEMTIME& utc)
{
    FILETIME then = {}, now = {};
    ::GetSystemTimeAsFileTime(&now);
    const auto ticks = [](const FILETIME& time) {
        return static_cast<std::int64_t>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart);
    };
    return ::SystemTimeToFileTime(&utc, &then) && std::abs(ticks(now) - ticks(then)) < 24 * 3600 * 10000000LL;
}

CollectedEvent DecodeCollectorRequest(const HttpRequest& request)
{
    const std::string begin = "/DataTracker.aspx?action=ev&data=";
    if (request.Method != "GET" || request.Target.rfind(begin, 0) != 0)
        throw std::runtime_error("not an event's request");
    // A query string's parameters end at "&"; there are these two.
    const std::string data = request.Target.substr(begin.size()), rest = data.substr(data.find('&') + 1);
    if (rest != data)
        throw std::runtime_error("a third parameter: " + rest);
    const std::string text = PercentDecode(data);
    const Json root = Json::parse(text), leaves = root.flatten(), &event = root.at("evt"),
               &who = root.at("vt");
    // Names and order of the members, with # for a whole number and $ for a text, without custom variables.
    std::string shape;
    for (const auto& [path, value] : leaves.items())
        if (path.rfind("/vt/sess/c/dim/", 0) != 0 || path.find_first_of("12345") != 15 || !value.is_string())
            shape += path + (value.is_number_integer() ? '#' : value.is_string() ? '$' : '?');
    if (shape !=
            "/d#/m#/y#/hh#/mi#/ss#/to#/app$/st$/u$/pa$/v$/vt/vtor/id$/vt/sess/id$/vt/sess/res$/vt/sess/os$"
            "/evt/ed#/evt/em#/evt/ey#/evt/ehh#/evt/emi#/evt/ess#/evt/eto#/evt/ect$/evt/ac$/evt/lb$/evt/vl#" ||
        root["app"] != "Updater" || !event["vl"].is_number_unsigned())
        throw std::runtime_error("a strange document: " + shape);
    TIME_ZONE_INFORMATION zone = {};
    ::GetTimeZoneInformation(&zone);
    if (root["to"] != zone.Bias || event["eto"] != zone.Bias)
        throw std::runtime_error("not the present time zone: " + text);
    for (const auto& [time, prefix] : {std::pair{&root, ""}, {&event, "e"}})
        if (const auto field = [time = time, prefix = prefix](const char* name) -> WORD {
                return time->at(prefix + std::string(name));
            };
            !IsRecent({field("y"), field("m"), 0, field("d"), field("hh"), field("mi"), field("ss"), 0}))
            throw std::runtime_error("not the present time: " + text);
    return {event["ect"],      event["ac"], event["lb"], event["vl"], who["vtor"]["id"],
            who["sess"]["id"], root["pa"],  root["v"],   text};
}

CCollectorHost::CCollectorHost(CFaultServer::Handler answer) :
    m_Answer(answer ? std::move(answer) : [](const HttpRequest&) { return TextReply("", "text/html"); }),
    m_Server([this](const HttpRequest& request) { return Handle(request); })
{
}

HttpReply CCollectorHost::Handle(const HttpRequest& request)
{
    try
    {
        const CollectedEvent event = DecodeCollectorRequest(request);
        const std::lock_guard lock(m_Mutex);
        m_Events.push_back(event);
    }
    catch (const std::exception& exception)
    {
        const std::lock_guard lock(m_Mutex);
        m_Problems.push_back(request.Method + " " + request.Target + " : " + exception.what());
    }
    return m_Answer(request);
}

std::vector<std::string> CCollectorHost::Labels() const
{
    std::vector<std::string> labels;
    for (const CollectedEvent& event : Events())
        labels.push_back(event.Label);
    return labels;
}
} // namespace Tests
