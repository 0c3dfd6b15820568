#include "Tests/Support/CollectorHost.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

constexpr std::string_view TargetBegin = "/DataTracker.aspx?action=ev&data=";

/// Length of the well-formed UTF-8 sequence of two or three bytes that begins there, else 0.
std::size_t Utf8Length(std::string_view text)
{
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u;
    };
    const std::size_t length = (byte(0) & 0xE0) == 0xC0 ? 2 : (byte(0) & 0xF0) == 0xE0 ? 3 : 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    return length;
}

/// "%XX" is one byte. Letters of other scripts are UTF-8, as it is or encoded by the transport; what remains
/// of other characters is the code of one of the first 256, of which strict JSON has no room for those below
/// 0x20.
std::string PercentDecode(std::string_view text)
{
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte != '%')
        {
            if (byte < 0x80 && !std::isalnum(byte) && !std::strchr("-_.~&=", byte))
                throw std::runtime_error("not encoded: code " + std::to_string(byte));
            bytes += text[i];
            continue;
        }
        const std::string_view digits = text.substr(i + 1, 2);
        if (digits.size() != 2 || digits.find_first_not_of("0123456789ABCDEF") != std::string_view::npos)
            throw std::runtime_error("a % without two upper-case digits");
        bytes += static_cast<char>(std::stoi(std::string(digits), nullptr, 16));
        i += 2;
    }

    std::string result;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte < 0x80)
            result += byte < 0x20 ? '?' : bytes[i];
        else if (const std::size_t length = Utf8Length(std::string_view(bytes).substr(i)))
        {
            result += bytes.substr(i, length);
            i += length - 1;
        }
        else
            (result += static_cast<char>(0xC0 | byte >> 6)) += static_cast<char>(0x80 | (byte & 0x3F));
    }
    return result;
}

/// The members must be these, in this order. A name that begins with "?" may be missing.
void CheckMembers(const Json& object, std::string_view names)
{
    auto member = object.begin();
    while (!names.empty())
    {
        std::string_view name = names.substr(0, names.find(' '));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        const bool mayBeMissing = name.front() == '?';
        name.remove_prefix(mayBeMissing ? 1 : 0);
        if (member != object.end() && member.key() == name)
            ++member;
        else if (!mayBeMissing)
            throw std::runtime_error("no member " + std::string(name) + " in its place");
    }
    if (member != object.end())
        throw std::runtime_error("unexpected member " + member.key());
}

CollectedEvent Decode(const HttpRequest& request)
{
    if (request.Method != "GET" || request.Target.rfind(TargetBegin, 0) != 0)
        throw std::runtime_error("not an event's request");
    CollectedEvent event;
    event.Json = PercentDecode(std::string_view(request.Target).substr(TargetBegin.size()));

    const Json root = Json::parse(event.Json);
    CheckMembers(root, "d m y hh mi ss to app st u pa v ?c vt evt");
    CheckMembers(root.at("vt"), "vtor sess");
    const Json& visitor = root.at("vt").at("vtor");
    const Json& session = root.at("vt").at("sess");
    const Json& happening = root.at("evt");
    CheckMembers(visitor, "id");
    CheckMembers(session, "id res os ?c");
    CheckMembers(happening, "ed em ey ehh emi ess eto ect ac lb vl");
    for (const char* name : {"d", "m", "y", "hh", "mi", "ss", "to"})
    {
        if (!root.at(name).is_number_integer() || !happening.at(std::string("e") + name).is_number_integer())
            throw std::runtime_error(std::string("not a whole number: ") + name);
    }
    if (root.at("app") != "Updater")
        throw std::runtime_error("another application's");

    event.Category = happening.at("ect");
    event.Action = happening.at("ac");
    event.Label = happening.at("lb");
    if (!happening.at("vl").is_number_unsigned())
        throw std::runtime_error("the value isn't a natural number");
    event.Value = happening.at("vl");
    event.Site = root.at("st");
    event.User = root.at("u");
    event.Partner = root.at("pa");
    event.Version = root.at("v");
    event.Visitor = visitor.at("id");
    event.Session = session.at("id");
    event.Screen = session.at("res");
    event.System = session.at("os");
    if (session.contains("c"))
    {
        CheckMembers(session.at("c"), "?dim ?mea");
        if (session.at("c").contains("dim"))
        {
            for (const auto& [index, entry] : session.at("c").at("dim").items())
                event.Dimensions[std::stoi(index)] = {entry.at("k"), entry.at("v")};
        }
    }
    return event;
}
} // namespace

std::optional<CollectedEvent> DecodeCollectorRequest(const HttpRequest& request, std::string& problem)
{
    try
    {
        return Decode(request);
    }
    catch (const std::exception& exception)
    {
        problem = request.Method + " " + request.Target + " : " + exception.what();
        return std::nullopt;
    }
}

CCollectorHost::CCollectorHost(CFaultServer::Handler answer) :
    m_Answer(answer ? std::move(answer) : [](const HttpRequest&) { return TextReply("", "text/html"); }),
    m_Server([this](const HttpRequest& request) { return Handle(request); })
{
}

HttpReply CCollectorHost::Handle(const HttpRequest& request)
{
    std::string problem;
    const auto event = DecodeCollectorRequest(request, problem);
    {
        const std::lock_guard lock(m_Mutex);
        if (event)
            m_Events.push_back(*event);
        else
            m_Problems.push_back(problem);
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
    const std::lock_guard lock(m_Mutex);
    std::vector<std::string> labels;
    for (const CollectedEvent& event : m_Events)
        labels.push_back(event.Label);
    return labels;
}

std::vector<std::string> CCollectorHost::Problems() const
{
    const std::lock_guard lock(m_Mutex);
    return m_Problems;
}
} // namespace Tests
