#include <gtest/gtest.h>

#include <filesystem>

#include "run/case_compare.h"

namespace ictvcf {
namespace {

class GoldenCase : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenCase, MatchesExpected) {
  const std::string dir = std::string(ICTVCF_TEST_CASES) + "/" + GetParam();
  for (const std::string& p : testing::check_case(ICTVCF_EXE, dir)) ADD_FAILURE() << p;
}

std::vector<std::string> case_names() {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(ICTVCF_TEST_CASES))
    if (std::filesystem::exists(e.path() / "cmd")) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

INSTANTIATE_TEST_SUITE_P(Cases, GoldenCase, ::testing::ValuesIn(case_names()),
                         [](const auto& info) {
                           std::string n = info.param;
                           std::replace(n.begin(), n.end(), '-', '_');
                           return n;
                         });

}  // namespace
}  // namespace ictvcf
