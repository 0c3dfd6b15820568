#include "Tests/Support/CollectorHost.h"

#include "Ls/System/String/Convert.h"

#include <cctype>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

const std::string TargetBegin = "/DataTracker.aspx?action=ev&data=";
/// Names and order of the members, with # for a whole number and $ for a text.
const std::string DocumentShape = "{d#m#y#hh#mi#ss#to#app$st$u$pa$v$vt{vtor{id$}sess{id$res$os$}}evt{ed#em#"
                                  "ey#ehh#emi#ess#eto#ect$ac$lb$vl#}}";

/// "%XX" is one byte. Bytes that are no UTF-8 are then characters told by their low 8 bits, and become "?" as
/// control characters do, which strict JSON has no room for.
std::string PercentDecode(const std::string& text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::string digits = byte == '%' ? text.substr(i + 1, 2) : "";
        const bool good = byte == '%' ? digits.size() == 2 && digits.find_first_not_of("0123456789ABCDEF") > 2
                                      : byte > 0x7F || std::isalnum(byte) || std::strchr("-_.~&=", byte);
        if (!good)
            throw std::runtime_error("not encoded at " + text.substr(i));
        bytes += byte == '%' ? static_cast<char>(std::stoi(digits, nullptr, 16)) : text[i];
        i += digits.size();
    }
    bytes = LS::WideToAnsi(LS::AnsiToWide(bytes));
    for (std::size_t at; (at = bytes.find("\xEF\xBF\xBD")) != std::string::npos;)
        bytes.replace(at, 3, "?");
    for (char& c : bytes)
        c = static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    return bytes;
}

std::string ShapeOf(const Json& value)
{
    std::string shape = value.is_object()           ? "{"
                        : value.is_number_integer() ? "#"
                        : value.is_string()         ? "$"
                                                    : "?";
    if (!value.is_object())
        return shape;
    for (const auto& [name, member] : value.items())
        shape += name + ShapeOf(member);
    return shape + "}";
}
} // namespace

CollectedEvent DecodeCollectorRequest(const HttpRequest& request)
{
    if (request.Method != "GET" || request.Target.rfind(TargetBegin, 0) != 0)
        throw std::runtime_error("not an event's request");
    const std::string text = PercentDecode(request.Target.substr(TargetBegin.size()));
    Json root = Json::parse(text);
    Json& session = root.at("vt").at("sess");
    if (session.contains("c"))
    {
        for (const auto& [index, variable] : session["c"].at("dim").items())
            if (std::stoi(index) < 1 || ShapeOf(variable) != "{k$v$}")
                throw std::runtime_error("a strange variable");
        session.erase("c");
    }
    const Json& event = root.at("evt");
    if (ShapeOf(root) != DocumentShape || root["app"] != "Updater" || !event["vl"].is_number_unsigned())
        throw std::runtime_error("a strange document: " + ShapeOf(root));
    return {event["ect"],  event["ac"], event["lb"], event["vl"], root["vt"]["vtor"]["id"],
            session["id"], root["pa"],  root["v"],   text};
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

std::vector<CollectedEvent> CCollectorHost::Events() const
{
    const std::lock_guard lock(m_Mutex);
    return m_Events;
}

std::vector<std::string> CCollectorHost::Labels() const
{
    std::vector<std::string> labels;
    for (const CollectedEvent& event : Events())
        labels.push_back(event.Label);
    return labels;
}

std::vector<std::string> CCollectorHost::Problems() const
{
    const std::lock_guard lock(m_Mutex);
    return m_Problems;
}
} // namespace Tests
