// Random and mutated texts for feeding parsers in fuzz-style tests. Deterministic per seed, so
// a failure can be replayed.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace zq {
namespace test {

class RandomText {
 public:
  // `seeds` are well-formed texts to mutate; `alphabet` is what the parser cares about. Any
  // byte may still appear, NUL included.
  RandomText(std::vector<std::string> seeds, std::string alphabet, unsigned int seed = 1)
      : m_seeds(std::move(seeds)), m_alphabet(std::move(alphabet)), m_engine(seed) {}

  // Half fresh random text, half a seed with a few insertions, deletions, replacements and
  // repeated prefixes.
  std::string next() {
    if (m_seeds.empty() || pick(2) == 0) {
      std::string text(pick(48), '\0');
      for (char& c : text) c = randomChar();
      return text;
    }
    std::string text = m_seeds[pick(m_seeds.size())];
    for (std::size_t edits = 1 + pick(4); edits > 0; --edits) {
      const std::size_t at = pick(text.size() + 1), kind = pick(4);
      if (kind == 3) {
        text.insert(at, text.substr(0, pick(text.size() + 1)));
      } else if (kind == 0 || at == text.size()) {
        text.insert(at, 1, randomChar());
      } else if (kind == 1) {
        text.erase(at, 1 + pick(3));
      } else {
        text[at] = randomChar();
      }
    }
    return text;
  }

 private:
  std::size_t pick(std::size_t n) {
    return n == 0 ? 0 : std::uniform_int_distribution<std::size_t>(0, n - 1)(m_engine);
  }
  char randomChar() { return static_cast<char>(pick(8) == 0 ? pick(256) : m_alphabet[pick(m_alphabet.size())]); }

  std::vector<std::string> m_seeds;
  std::string m_alphabet;
  std::mt19937 m_engine;
};

}  // namespace test
}  // namespace zq
