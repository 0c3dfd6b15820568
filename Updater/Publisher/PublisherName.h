#pragma once

#include <span>
#include <string_view>

/// True when one component of a certificate's subject name equals one of the publishers, letter by letter.
/// subject is the text that CertNameToStr renders ("2.5.4.6=US, 2.5.4.10=\"Larkspur, Inc.\""), publishers
/// are whole components without quotes ("2.5.4.10=Larkspur, Inc."). A malformed text is refused, unless a
/// component before the fault was accepted. Publishers are plain ASCII.
bool SubjectNamesPublisher(std::string_view subject, std::span<const std::string_view> publishers);
bool SubjectNamesPublisher(std::wstring_view subject, std::span<const std::string_view> publishers);
