#include "Tests/Support/UpdateAnswers.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace Tests
{
std::string UpdateXml(const std::string& patchUrl)
{
    const std::string begin =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<string xmlns=\"http://larkspur.example/\"";
    return patchUrl.empty() ? begin + " />" : begin + ">" + patchUrl + "</string>";
}

std::shared_ptr<const std::string> ReadWholeFile(const std::wstring& path)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    if (!file)
        throw std::runtime_error("can't read " + std::filesystem::path(path).string());
    return std::make_shared<const std::string>(std::istreambuf_iterator<char>(file),
                                               std::istreambuf_iterator<char>());
}

HttpReply NotFound()
{
    HttpReply reply;
    reply.Head = HttpHead("404 Not Found", {"Content-Length: 0"});
    return reply;
}

HttpReply BytesReply(const HttpRequest& request, std::shared_ptr<const std::string> bytes)
{
    HttpReply reply = FileReply(request, bytes->size());
    if (reply.Body)
    {
        const std::uint64_t skipped = bytes->size() - reply.BodyLength; // 0 also when a range was refused
        const std::uint64_t begin = skipped == 0 ? 0 : request.RangeBegin.value_or(skipped);
        reply.Body = [begin, bytes](std::uint64_t position, char* to, std::size_t size) {
            std::memcpy(to, bytes->data() + begin + position, size);
        };
    }
    return reply;
}
} // namespace Tests
