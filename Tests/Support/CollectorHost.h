#pragma once

#include "Tests/Support/FaultServer.h"

#include <mutex>
#include <string>
#include <vector>

namespace Tests
{
/// One analytics request as the collector host understands it; texts in UTF-8.
struct CollectedEvent
{
    std::string Category, Action, Label;
    std::uint32_t Value = 0;
    std::string Visitor, Session, Partner, Version;
    /// The decoded document.
    std::string Json;
};

/// Decodes the target of a request and checks all that can be checked of it: the path, the encoding, that
/// the data is JSON, and names, order and types of its members. Throws a std::exception with the reason.
CollectedEvent DecodeCollectorRequest(const HttpRequest& request);

/// The analytics collector host on 127.0.0.1.
class CCollectorHost
{
public:
    /// Takes every event with 200 unless another answer is given; the answer is called as the fault server's
    /// handler is, after the event has been recorded.
    explicit CCollectorHost(CFaultServer::Handler answer = {});

    CFaultServer& Server() { return m_Server; }
    std::string Host() const { return m_Server.Host(); }
    std::string Endpoint() const { return m_Server.Url("/DataTracker.aspx"); }

    /// In the order of their arrival.
    std::vector<CollectedEvent> Events() const { return std::lock_guard(m_Mutex), m_Events; }
    std::vector<std::string> Labels() const;
    /// What was wrong with requests; empty is good.
    std::vector<std::string> Problems() const { return std::lock_guard(m_Mutex), m_Problems; }

private:
    HttpReply Handle(const HttpRequest& request);

    CFaultServer::Handler m_Answer;
    mutable std::mutex m_Mutex;
    std::vector<CollectedEvent> m_Events;
    std::vector<std::string> m_Problems;
    /// Last: its threads use what stands above.
    CFaultServer m_Server;
};
} // namespace Tests
