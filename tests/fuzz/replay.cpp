// Runs every target with every input of its corpus, as a test with the name of the file. Small inputs are varied.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "targets.h"

namespace nebulark {

namespace {

using Target = void (*)(std::string_view);

// The text; and the text cut short, with a byte inserted, removed or changed, at every place.
std::vector<std::string> texts_near(const std::string& text) {
  std::vector<std::string> texts{text};
  for (std::size_t place = 0; place <= text.size(); ++place) {
    texts.push_back(text.substr(0, place));
    for (const char inserted : {'~', ' ', '\n', '='})
      texts.push_back(std::string(text).insert(place, 1, inserted));
  }
  for (std::size_t place = 0; place < text.size(); ++place) {
    texts.push_back(std::string(text).erase(place, 1));
    const char byte = text[place]; // a letter's other case is 0x20 away
    for (const int changed : {byte ^ 0x20, byte ^ 0x80, byte + 1, byte - 1, 0, int{'~'}})
      texts.push_back(std::string(text).replace(place, 1, 1, static_cast<char>(changed)));
  }
  return texts;
}

// Inputs of a megabyte, also those that stand for one, would take too long to vary.
bool is_small(std::string_view text) { return text.size() < 512 && text.find("~GAP") == std::string_view::npos; }

class Replay : public testing::Test {
public:
  Replay(Target target, std::filesystem::path input) : target_(target), input_(std::move(input)) {}

  void TestBody() override {
    std::ifstream file(input_, std::ios::binary);
    ASSERT_TRUE(file);
    const std::string input(std::istreambuf_iterator<char>(file), {});
    for (const std::string& text : is_small(input) ? texts_near(input) : std::vector{input})
      ASSERT_NO_THROW(target_(text)) << testing::PrintToString(text);
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
