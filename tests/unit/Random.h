// Reproducible randomness for property tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

/// A generator that yields the same values on every machine and run.
class Random {
 public:
  explicit Random(std::uint64_t seed) : _engine(seed) {}

  /// A number in 0 to `bound` - 1; `bound` must not be 0.
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(_engine() % bound); }

  /// True once in `times` on average.
  bool oneIn(std::size_t times) { return below(times) == 0; }

  /// One element of a sequence that is not empty.
  template <class Sequence>
  const auto& pick(const Sequence& choices) {
    return choices[below(choices.size())];
  }

  /// `length` characters of `alphabet`.
  std::string text(std::string_view alphabet, std::size_t length) {
    std::string made;
    while (made.size() < length) made += pick(alphabet);
    return made;
  }

  /// 64 random bits.
  std::uint64_t bits() { return _engine(); }

 private:
  std::mt19937_64 _engine;
};
