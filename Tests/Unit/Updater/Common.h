#pragma once

#include "Ls/System/Io/Path.h"
#include "Tests/Support/Caught.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/TemporaryValue.h"

using namespace std::string_literals;

template <class In, class Out>
struct TableRow
{
    In Given;
    Out Expected;
    // Where the row stands.
    const char* File = __builtin_FILE();
    int Line = __builtin_LINE();
};

/// The function must make of what each row gives what it expects; a failure is told at the row.
template <class In, class Out, class Function>
void CheckTable(Function function, std::initializer_list<TableRow<In, Out>> rows)
{
    for (const auto& row : rows)
    {
        const Out made = function(row.Given);
        if (made != row.Expected)
            ADD_FAIL_CHECK_AT(row.File, row.Line,
                              "row " << &row - rows.begin() << ": " << doctest::toString(made)
                                     << " instead of " << doctest::toString(row.Expected));
    }
}
