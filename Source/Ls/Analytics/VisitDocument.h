#pragma once

#include "Ls/Analytics/Json/Element.h"
#include "Ls/Analytics/Visit.h"

namespace LS::Analytics
{
/// The collector host's document of a visit. Throws json::Exception when two custom variables of one kind
/// have the same index.
json::Element BuildVisitDocument(const Visit& visit, const VisitorAndSession& who, const Event& event);
} // namespace LS::Analytics
