// Entry of every test program. A run in which no test was selected is a failure: a filter that matches
// nothing must not look like a pass.
#define DOCTEST_CONFIG_IMPLEMENT
#include "Ls/System/String/Convert.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

namespace
{
unsigned g_TestsRun = 0;

struct CountListener : doctest::IReporter
{
    explicit CountListener(const doctest::ContextOptions&) {}
    void report_query(const doctest::QueryData&) override {}
    void test_run_start() override {}
    void test_run_end(const doctest::TestRunStats& stats) override
    {
        g_TestsRun = stats.numTestCasesPassingFilters;
    }
    void test_case_start(const doctest::TestCaseData&) override {}
    void test_case_reenter(const doctest::TestCaseData&) override {}
    void test_case_end(const doctest::CurrentTestCaseStats&) override {}
    void test_case_exception(const doctest::TestCaseException&) override {}
    void subcase_start(const doctest::SubcaseSignature&) override {}
    void subcase_end() override {}
    void log_assert(const doctest::AssertData&) override {}
    void log_message(const doctest::MessageData&) override {}
    void test_case_skipped(const doctest::TestCaseData&) override {}
};
DOCTEST_REGISTER_LISTENER("count", 1, CountListener);
} // namespace

int wmain(int count, wchar_t** arguments)
{
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i)
        texts.push_back(LS::WideToAnsi(arguments[i]));
    std::vector<const char*> pointers;
    for (const std::string& text : texts)
        pointers.push_back(text.c_str());

    doctest::Context context(static_cast<int>(pointers.size()), pointers.data());
    const int result = context.run();
    if (context.shouldExit())
        return result;
    return g_TestsRun == 0 ? 2 : result;
}
