// Entry of every test program.
#define DOCTEST_CONFIG_IMPLEMENT
#include "Ls/System/String/Convert.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

int wmain(int count, wchar_t** arguments)
{
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i)
        texts.push_back(LS::WideToAnsi(arguments[i]));
    std::vector<const char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());
    return doctest::Context(count, pointers.data()).run();
}
