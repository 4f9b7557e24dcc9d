// Runs every target with every input of its corpus, as a test with the name of the file.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "targets.h"

namespace nebulark {

namespace {

using Target = void (*)(std::string_view);

class Replay : public testing::Test {
public:
  Replay(Target target, std::filesystem::path input) : target_(target), input_(std::move(input)) {}

  void TestBody() override {
    std::ifstream file(input_, std::ios::binary);
    ASSERT_TRUE(file);
    target_(std::string(std::istreambuf_iterator<char>(file), {}));
  }

private:
  Target target_;
  std::filesystem::path input_;
};

void register_corpus(const char* name, Target target) {
  for (const auto& input : std::filesystem::directory_iterator(std::filesystem::path(FUZZ_CORPUS) / name))
    testing::RegisterTest(name, input.path().filename().c_str(), nullptr, nullptr, __FILE__, __LINE__,
                          [target, path = input.path()] { return new Replay(target, path); });
}

} // namespace

} // namespace nebulark

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  nebulark::register_corpus("tag_reader", nebulark::tag_reader);
  nebulark::register_corpus("ownership", nebulark::ownership);
  nebulark::register_corpus("preferences_file", nebulark::preferences_file);
  nebulark::register_corpus("assignments", nebulark::assignments);
  return RUN_ALL_TESTS();
}
