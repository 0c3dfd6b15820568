#pragma once

#include "Ls/System/Net/HttpError.h"
#include "Ls/System/Net/HttpWebRequest.h"
#include "Tests/Support/FaultServer.h"
#include "Tests/Support/TempFolder.h"

#include <doctest/doctest.h>

namespace Tests
{
using LS::System::CRefPtr;
using LS::System::Net::CHttpWebRequest;
using LS::System::Net::HttpError;
using LS::System::Net::UnknownLength;

using RequestSetup = std::function<void(CHttpWebRequest&)>;

inline CRefPtr<CHttpWebRequest> StartRequest(const std::string& url, const RequestSetup& setup = {},
                                             std::uint32_t receiveTimeOutMs = 0)
{
    auto request = CHttpWebRequest::CreateHttp(url, 0, 0, receiveTimeOutMs, 0);
    if (setup)
        setup(*request);
    request->Start();
    return request;
}

inline bool WaitForEnd(const CRefPtr<CHttpWebRequest>& request)
{
    return WaitFor([&] { return request->PercentDone() == 100.0F; });
}

/// Runs a request to its end.
inline CRefPtr<CHttpWebRequest> Fetch(const std::string& url, const RequestSetup& setup = {},
                                      std::uint32_t receiveTimeOutMs = 0)
{
    auto request = StartRequest(url, setup, receiveTimeOutMs);
    CHECK(WaitForEnd(request));
    return request;
}

inline HttpError ErrorOf(const CRefPtr<CHttpWebRequest>& request)
{
    return static_cast<HttpError>(request->ErrorCode());
}

/// Part of a pattern file.
inline std::string Pattern(std::uint64_t begin, std::uint64_t size)
{
    std::string bytes(static_cast<std::size_t>(size), '\0');
    FillPattern(begin, bytes.data(), bytes.size());
    return bytes;
}
} // namespace Tests
