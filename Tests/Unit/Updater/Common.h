#pragma once

#include "Ls/System/Io/Path.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/TemporaryValue.h"

using namespace std::string_literals;

/// The function must make of what each row begins with what it ends with.
template <class In, class Out, class Function>
void CheckTable(Function function, std::initializer_list<std::pair<In, Out>> rows)
{
    for (const auto& row : rows)
        CHECK_MESSAGE(function(row.first) == row.second, "row " << &row - rows.begin());
}
