#include "Ls/Analytics/VisitDocument.h"

#include "Ls/System/String/DecimalText.h"

#include <string>

namespace LS::Analytics
{
namespace
{
/// "d", "m", "y", ... or, for an event, "ed", "em", "ey", ...
void InsertMoment(json::Object& object, const std::wstring& prefix, const Moment& moment)
{
    object.Insert(prefix + L"d", moment.Day);
    object.Insert(prefix + L"m", moment.Month);
    object.Insert(prefix + L"y", moment.Year);
    object.Insert(prefix + L"hh", moment.Hour);
    object.Insert(prefix + L"mi", moment.Minute);
    object.Insert(prefix + L"ss", moment.Second);
    object.Insert(prefix + L"to", moment.TimeZoneOffset);
}

/// Adds "c" when there is anything to write in it.
void InsertCustomVariables(json::Object& object, const std::vector<CustomVariable>& variables)
{
    json::Object dimensions;
    json::Object measures;
    for (const CustomVariable& variable : variables)
    {
        const bool isDimension = variable.Kind == CustomVariableDimension;
        if (variable.Index < 1 || variable.Index > 5 ||
            (!isDimension && variable.Kind != CustomVariableMeasure))
            continue;
        json::Object entry;
        entry.Insert(L"k", variable.Key);
        entry.Insert(L"v", variable.Value);
        (isDimension ? dimensions : measures).Insert(DecimalText(variable.Index), std::move(entry));
    }

    json::Object both;
    if (!dimensions.IsEmpty())
        both.Insert(L"dim", std::move(dimensions));
    if (!measures.IsEmpty())
        both.Insert(L"mea", std::move(measures));
    if (!both.IsEmpty())
        object.Insert(L"c", std::move(both));
}
} // namespace

json::Element BuildVisitDocument(const Visit& visit, const VisitorAndSession& who, const Event& event)
{
    json::Object visitor;
    visitor.Insert(L"id", who.VisitorId);

    json::Object session;
    session.Insert(L"id", who.SessionId);
    session.Insert(L"res", who.ScreenResolution);
    session.Insert(L"os", who.OperatingSystem);
    InsertCustomVariables(session, who.CustomVariables);

    json::Object visitorAndSession;
    visitorAndSession.Insert(L"vtor", std::move(visitor));
    visitorAndSession.Insert(L"sess", std::move(session));

    json::Object happening;
    InsertMoment(happening, L"e", event.Time);
    happening.Insert(L"ect", event.Category);
    happening.Insert(L"ac", event.Action);
    happening.Insert(L"lb", event.Label);
    happening.Insert(L"vl", event.Value);

    json::Object root;
    InsertMoment(root, L"", visit.Time);
    root.Insert(L"app", visit.Application);
    root.Insert(L"st", visit.Site);
    root.Insert(L"u", visit.User);
    root.Insert(L"pa", visit.Partner);
    root.Insert(L"v", visit.Version);
    InsertCustomVariables(root, visit.CustomVariables);
    root.Insert(L"vt", std::move(visitorAndSession));
    root.Insert(L"evt", std::move(happening));
    return root;
}
} // namespace LS::Analytics
