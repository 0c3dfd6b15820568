// What comes from outside - the network, the disk, other programs - changed at random: what is always true of
// the results, whatever came in. The debug build, whose checks end the program at the first fault, gets the
// most of it.
#include "Ls/System/Io/Path.h"
#include "Ls/System/Net/HeaderText.h"
#include "Ls/System/Net/MultiStreamDownload/RangeSplit.h"
#include "Ls/System/Net/MultiStreamDownload/ResponseRules.h"
#include "Ls/System/Net/MultiStreamDownload/ResumeRules.h"
#include "Ls/System/Net/ResponseHeaders.h"
#include "Ls/System/Net/ResponseMetadata.h"
#include "Ls/System/Net/Url.h"
#include "Ls/System/Util/Crc32.h"
#include "Ls/System/Win32/RegistryKey.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/Soak.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Unit/Analytics/MemoryQueue.h"
#include "Updater/Fetch/PatchPath.h"
#include "Updater/Publisher/PublisherName.h"
#include "Updater/Query/UpdateAnswer.h"
#include "Updater/Run/ExitCodes.h"
#include "Updater/Run/RunOptions.h"
#include "Updater/Settings/IniFile.h"

#include <shellapi.h>

#include <doctest/doctest.h>

#include <cstring>
#include <random>
#include <sstream>

using namespace LS::System;
using namespace LS::System::Net;
using namespace std::string_literals;
namespace Engine = MultiStreamDownload;

namespace
{
#ifdef NDEBUG
constexpr unsigned Rounds = 10000;
#else
constexpr unsigned Rounds = 100000;
#endif

/// Whether a parser took a text; nothing when it made of it what it must never make of any.
using Verdict = std::optional<bool>;

struct Parser
{
    std::string Name;
    /// Good texts to begin with, and pieces that mean something in them.
    std::vector<std::string> Seeds, Pieces;
    std::function<Verdict(const std::string& text)> Judge;
};

/// The text after one to eight insertions, deletions, replacements and repetitions.
std::string Mutated(std::string text, const std::vector<std::string>& pieces, std::mt19937& random)
{
    const auto below = [&](std::size_t limit) -> std::size_t { return limit == 0 ? 0 : random() % limit; };
    for (std::size_t change = below(8) + 1; change > 0; --change)
    {
        const std::string added[] = {"", std::string(1, static_cast<char>(random())),
                                     pieces[below(pieces.size())],
                                     text.substr(below(text.size()), below(20))};
        const std::string& piece = added[below(4)];
        const std::size_t removed[] = {0, piece.size(), below(20)};
        const std::size_t count = removed[below(3)];
        text.replace(below(text.size() + 1), count, piece);
    }
    return text;
}

/// Judges so many mutations, the same in every run: none may be wrong, some must be taken and some refused,
/// or the mutations miss what the parser decides.
void CheckParser(const Parser& parser, unsigned rounds)
{
    CAPTURE(parser.Name);
    std::mt19937 random(20261114);
    unsigned taken = 0;
    const DWORD begin = ::GetTickCount();
    for (unsigned round = 0; round < rounds; ++round)
    {
        const std::string text = Mutated(parser.Seeds[round % parser.Seeds.size()], parser.Pieces, random);
        const Verdict verdict = parser.Judge(text);
        if (!verdict)
            FAIL("round " << round << ": " << text);
        taken += *verdict ? 1 : 0;
    }
    CHECK(taken > 0);
    CHECK(taken < rounds);
    MESSAGE(parser.Name << ": " << rounds << " in " << ::GetTickCount() - begin << " ms");
}

Verdict If(bool right, bool taken)
{
    return right ? Verdict(taken) : std::nullopt;
}

bool IsPlain(const std::string& text)
{
    return std::none_of(text.begin(), text.end(), IsControl);
}

bool Contains(const auto& text, const auto& part)
{
    return text.find(part) != std::string::npos;
}

Verdict JudgeAnswer(const std::string& text)
{
    std::string url = "before";
    const std::int32_t code = ParseUpdateAnswer(text, url);
    if (code != 0)
        return If(url == "before" && code >= ExitCodes::QueryNoXmlDeclaration &&
                      code <= ExitCodes::QueryBadStringValue,
                  false);
    return If(url.empty() || Contains(text, ">" + url + "</"), true);
}

bool IsGood(const ContentRange& range)
{
    return range.First <= range.Last && (!range.Total || range.Last < *range.Total);
}

Verdict JudgeHeaders(const std::string& text)
{
    static CCookieList cookies; // of all the texts, so that it reaches its limits
    const ResponseHeaders headers = ResponseHeaders::Parse(text, &cookies);
    const std::string all = cookies.Text();
    const bool hasStatus = headers.StatusCode >= 100 && headers.StatusCode <= 999;
    return If((hasStatus || headers.StatusCode == 0) && (!headers.Range || IsGood(*headers.Range)) &&
                  (headers.LastModified.empty() || IsHeaderText(headers.LastModified)) && IsPlain(all) &&
                  std::count(all.begin(), all.end(), ';') < 64,
              hasStatus);
}

/// Of the answer to a stream that asked for the bytes from 131072 on, alone or as one of two.
Verdict JudgeContentRange(const std::string& text)
{
    constexpr std::uint32_t offset = 131072, size = 300000;
    Engine::Response response{206, text.substr(0, 5), text, {}, {}, {}, true, offset, size - 1, size};
    const Engine::Verdict alone = Engine::JudgeResponse(response);
    response.SingleStream = false;
    const Engine::Verdict ofTwo = Engine::JudgeResponse(response);
    const bool taken = ofTwo.FailureMessage.empty();
    const bool fits = alone.ResumeOffset == offset && alone.End == alone.FileSize - 1;
    return If((fits || !alone.FailureMessage.empty()) &&
                  (!taken || (text.starts_with("bytes 131072-299999") && ofTwo.FileSize == size)),
              taken);
}

bool IsGood(const Url& url)
{
    const std::string text =
        (url.Secure ? "https://" : "http://") + url.Host + ":" + std::to_string(url.Port) + url.PathAndQuery;
    const auto again = Url::Parse(text);
    return again && again->Host == url.Host && again->Port == url.Port &&
           again->PathAndQuery == url.PathAndQuery && url.Host.size() <= 255 && IsPlain(text) &&
           !Contains(text, '#') && IsHeaderText(url.WirePath()) && !Contains(url.WirePath(), ' ');
}

Verdict JudgeUrl(const std::string& text)
{
    const auto url = Url::Parse(text), target = Url::Parse("https://host/dir/file?q")->Resolve(text);
    return If((!url || IsGood(*url)) && (!target || (IsGood(*target) && target->Secure)), url.has_value());
}

Verdict JudgeFileName(const std::string& text)
{
    const std::wstring name = PatchFileName(text), path = L"C:\\data\\" + name;
    if (!IO::IsPlainFileName(name))
        return If(!Contains(name, L'/'), false);
    // The system finds the file in that folder under that name, and nowhere else.
    wchar_t found[300] = L"";
    ::GetFullPathNameW(path.c_str(), 300, found, nullptr);
    return If(path == found && name.find_first_of(L":*?\"<>|\\/") == std::wstring::npos, true);
}

Verdict JudgeSubject(std::string text)
{
    constexpr std::string_view publishers[] = {"2.5.4.10=Larkspur, Inc."};
    if (!SubjectNamesPublisher(text, publishers))
        return false;
    std::erase(text, '"');
    const std::size_t at = text.find(publishers[0]);
    return If(at != std::string::npos && (at == 0 || Contains(text, ", " + std::string(publishers[0]))),
              true);
}

const Engine::DownloadRecord Download = {2, 70000, 2};
const Engine::StreamRecord Stream = {1, 1, 65536, 70000, 2, {'S', 'a', 't'}};

std::string BytesOf(const auto& record)
{
    const auto bytes = Engine::Encode(record);
    return {bytes.begin(), bytes.end()};
}

/// A changed record never passes its check; that of these bytes does.
auto JudgeRecord(const auto& record)
{
    return [good = Engine::Encode(record)](const std::string& text) {
        auto bytes = good;
        std::copy_n(text.begin(), std::min(text.size(), bytes.size()), bytes.begin());
        const bool taken = Engine::Decode(bytes).has_value();
        return If(taken == (bytes == good), taken);
    };
}

/// Size, streams, offset and size of the cache file, as records with a good check may have them: nothing
/// leads outside the file.
Verdict JudgeValues(const std::string& text)
{
    std::uint32_t size = 0, threads = 0, offset = 0, cache = 0;
    std::istringstream(text) >> size >> threads >> offset >> cache;
    if (!Engine::IsAdoptable({2, size, threads}))
        return false;
    std::uint64_t next = 0;
    bool usable = false;
    for (std::uint32_t i = 0; i < threads; ++i)
    {
        const auto [start, end] = Engine::SplitRange(size, threads, i);
        if (start != next || (size > 0 && start > end))
            return std::nullopt;
        next = end + 1ULL;
        if (!Engine::IsUsable({.Offset = offset, .ThreadsUsed = threads},
                              {start, end, size > 0, threads, cache}))
            continue;
        usable = true;
        if (offset < start || offset > cache || (size > 0 && offset > next))
            return std::nullopt;
    }
    return If(size == 0 || next == size, usable);
}

Verdict JudgeMetadata(const std::string& text)
{
    const auto metadata = ResponseMetadata::Parse(text);
    if (!metadata)
        return false;
    const bool canBeSent = !metadata->HaveDate() || IsHeaderText(metadata->LastModified);
    return If(canBeSent && ResponseMetadata::Parse(metadata->Text()).value().Text() == metadata->Text(),
              true);
}

/// Nothing wrong is sent, nothing twice without end, and the queue can be used again.
Verdict JudgeQueue(const std::string& text)
{
    CMemoryStorage storage(text);
    // Mostly with a good header, or nothing behind it would be looked at.
    if (text.size() >= QueueHeaderSize && text.size() % 4 != 0)
    {
        std::uint32_t numbers[3];
        std::memcpy(numbers, &text[4], sizeof(numbers));
        storage.Bytes.replace(0, QueueHeaderSize, EncodeQueueHeader({numbers[0], numbers[1], numbers[2]}));
    }
    storage.Append("new");
    Texts left = Drain(storage);
    const bool hasNew = !left.empty() && left.back() == "new";
    const bool emptied = storage.Bytes.size() == QueueHeaderSize;
    const auto isKnown = [](const std::string& query) {
        const auto number = static_cast<unsigned>(std::atoi(query.c_str() + 1));
        return query == "new" || (number < 9 && query == NumberedQuery(number));
    };
    return If(hasNew && emptied && left.size() < 40 && std::all_of(left.begin(), left.end(), isKnown),
              left.size() > 1);
}

/// A value is never longer than the system's buffer, and never made up.
Verdict JudgeIni(const std::string& text)
{
    static const Tests::CTempFolder folder;
    const std::wstring path = folder.Path(L"a.ini");
    Tests::WriteBytes(path, text);
    CIniFile ini;
    ini.LoadFile(path);
    std::wstring value;
    const bool found = !Tests::Caught([&] { value = ini.GetValue(L"User", L"VisitorID"); });
    const bool isAscii = std::all_of(value.begin(), value.end(), [](wchar_t c) { return c < 128; });
    return If(value.size() <= 518 && (!isAscii || Contains(text, LS::WideToAnsi(value))), found);
}

constexpr wchar_t MutationsKey[] = L"Software\\Larkspur\\Mutations";

/// The first character is the value's type, the rest its bytes: read as what they are, or refused.
Verdict JudgeRegistryValue(const std::string& text)
{
    static const Win32::CRegistryKey key(L"HKCU\\"s + MutationsKey, false);
    const DWORD type = text.empty() ? REG_NONE : text[0] - '0';
    const std::string bytes = text.substr(std::min<std::size_t>(text.size(), 1));
    ::RegSetKeyValueW(HKEY_CURRENT_USER, MutationsKey, L"Value", type, bytes.data(),
                      static_cast<DWORD>(bytes.size()));
    std::wstring found;
    const bool isText = !Tests::Caught([&] { found = key.GetString(L"Value", L""); });
    const bool isNumber = !Tests::Caught([&] { key.GetUint32(L"Value", 7); });
    if (isText != (type == REG_SZ || type == REG_EXPAND_SZ) || isNumber != (type == REG_DWORD))
        return std::nullopt;
    // Of a text only a terminator and an odd byte are left away.
    const std::size_t size = found.size() * sizeof(wchar_t);
    const bool rightText = size <= bytes.size() && bytes.size() - size <= sizeof(wchar_t) + 1 &&
                           std::memcmp(found.data(), bytes.data(), size) == 0;
    return If(!isText || rightText, isText || isNumber);
}

/// Every value stands in an argument as it is, and the installer gets the rest of the line unchanged.
Verdict JudgeCommandLine(const std::string& text)
{
    const std::wstring line = L"Updater.exe " + LS::AnsiToWide(text);
    int count = 0;
    wchar_t** const split = ::CommandLineToArgvW(line.c_str(), &count);
    const std::vector<std::wstring> arguments(split + 1, split + count);
    ::LocalFree(split);
    const RunOptions options = ParseRunOptions(line, arguments);
    const auto isGiven = [&](const std::wstring& value) {
        return std::any_of(arguments.begin(), arguments.end(),
                           [&](const auto& argument) { return argument.ends_with(value); });
    };
    for (const std::wstring& value : {options.DP, options.Locale, options.FromFilePath, options.PatchURL})
        if (!value.empty() && !isGiven(value))
            return std::nullopt;
    const std::wstring& tail = options.InstallerArgs;
    return If(tail.empty() || line.ends_with(L"/installerargs=" + tail), options.IsBlueStacks);
}
} // namespace

// clang-format off
TEST_CASE("parsers of what comes from outside")
{
    const Parser parsers[] = {
        {"update answer", {R"(<?xml version="1.0"?><string xmlns="http://x/">http://x/y.exe</string>)"},
         {"<string>", "<string", ">", "</", "/>", "<?xml"}, JudgeAnswer},
        {"response headers",
         {"HTTP/1.1 206 Partial Content\r\nContent-Length: 100\r\nContent-Range: bytes 0-99/1000\r\n"
          "Last-Modified: Sat, 14 Nov 2026 05:56:03 GMT\r\nSet-Cookie: a=1; Path=/\r\nCookie: b=2; c=3\r\n\r\n",
          "HTTP/1.1 302 Found\r\nLocation: /p\r\nTransfer-Encoding: chunked\r\n"},
         {"\r\n", "\r", ": ", ":", "-", "/", "*", ";", "=", "bytes ", "18446744073709551615", "Cookie: ",
          "Status-Code: 1", "Content-Length: "}, JudgeHeaders},
        {"Content-Range", {"bytes 131072-299999/300000"},
         {"bytes ", "/", "-", "*", "4294967296", "99999999999999999999", " "}, JudgeContentRange},
        {"URL", {"https://host:8443/a b/c?d=e|f:g#h", "//h/p", "../a?b"},
         {"http://", "://", ":", "//", "/", "?", "#", "[", "]", "@", "%", "\r\n", "65536"}, JudgeUrl},
        {"file name out of a URL", {"http://host/dir/Patch%20A.exe?x=1/y", "http://host/NUL.exe", "COM1"},
         {"/", "?", "%", "%2F", "%5C", "%3A", "%00", "..", ".", " ", "AUX", "CON.", "lpt1"}, JudgeFileName},
        {"subject name", {R"(2.5.4.6=US, 2.5.4.10="Larkspur, Inc.", 2.5.4.3="a ""b"" c")"},
         {"\"", "\"\"", ", ", ",", "2.5.4.10="}, JudgeSubject},
        {"download state record", {BytesOf(Download)}, {"\1", "\0"s, "\xFF\xFF"},
         JudgeRecord(Download)},
        {"stream record", {BytesOf(Stream)},
         {"\1", "\0"s, "\xFF\xFF", "dddddddddddd"}, JudgeRecord(Stream)},
        {"values of records", {"300000 2 150000 299999", "0 1 65536 65536", "4294967295 1 4294967295 4294967295"},
         {" 0 ", " 1 ", " 2 ", " 65536 ", " 2147483647 ", " 2147483648 ", " 4294967295 "}, JudgeValues},
        {"response metadata", {ResponseMetadata{"Sat, 14 Nov 2026 05:56:03 GMT", 1048576, "http://h/f"}.Text()},
         {"\r\n", "\n", "File-Data-Version: 1", "Last-Modified: ", "Content-Length: ", "Url: ", "-",
          std::string(4000, 'x')}, JudgeMetadata},
        {"analytics queue", {SampleQueue(9, 3).Bytes},
         {"\0\0\0\0"s, "\x14\0\0\0"s, "\x15\0\0\0\x14\0\0\0"s, "\xFF\xFF\xFF\xFF", "\xEB\xFF\xFF\xFF",
          "\0\0\0\x80"s, EncodeQueueRecord(NumberedQuery(8), 8), EncodeQueueHeader({9, 40, 9}),
          "xxxxxxxxxxxxxxx"}, JudgeQueue},
        {"registry values", {"1h\0o\0s\0t\0\0\0"s, "4\1\0\0\0"s, "2%\0P\0%\0"s},
         {"\0"s, "\0\0"s, "1", "2", "3", "4", "7"}, JudgeRegistryValue},
        {"command line",
         {R"(/product=BlueStacks /dp x /locale=de /from=C:\a.exe /prompt /installerargs="/S" /D)"},
         {"/dp", "/dp=", " ", "/installerargs=", "\"", "/product=", "\\\""}, JudgeCommandLine},
    };
    for (const Parser& parser : parsers)
        CheckParser(parser, Rounds);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, MutationsKey);
    // Each round is a file written and read some ten times.
    CheckParser({"INI file", {"[User]\r\nVisitorID={A-1}\r\nOEMOrigin=x\r\n[Other]\r\na=b\r\n"},
                 {"[", "]", "=", ";", "\r\n", "\0"s, "\"", "\xFF\xFE", std::string(3000, 'k')}, JudgeIni},
                Tests::Loops(2000, 100000));
}
// clang-format on
