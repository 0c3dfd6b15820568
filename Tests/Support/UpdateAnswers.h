#pragma once

#include "Tests/Support/FaultServer.h"

#include <memory>
#include <string>

namespace Tests
{
/// The update service's answer: one string element with the patch's URL, self-closing when there is no
/// update.
std::string UpdateXml(const std::string& patchUrl);

/// The whole file; a file that can't be read is a std::runtime_error.
std::shared_ptr<const std::string> ReadWholeFile(const std::wstring& path);

HttpReply NotFound();

/// What a well-behaved file server answers for these bytes, ranges included.
HttpReply BytesReply(const HttpRequest& request, std::shared_ptr<const std::string> bytes);
} // namespace Tests
