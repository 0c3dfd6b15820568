#pragma once

#include "Ls/System/Io/Path.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/TemporaryValue.h"

using namespace std::string_literals;

/// The function must make of what each row begins with what it ends with; a failure is told at the table's
/// line.
template <class In, class Out, class Function>
void CheckTable(Function function, std::initializer_list<std::pair<In, Out>> rows,
                const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    for (const auto& row : rows)
        if (const Out made = function(row.first); made != row.second)
            ADD_FAIL_CHECK_AT(file, line,
                              "row " << &row - rows.begin() << ": " << doctest::toString(made)
                                     << " instead of " << doctest::toString(row.second));
}
