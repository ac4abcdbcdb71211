#include "tests/bench/Measure.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <utility>

#include "platform/Json.h"

namespace {

Json Figure(const Samples& samples) {
  std::vector<double> sorted = samples.values;
  std::sort(sorted.begin(), sorted.end());
  return {{"name", samples.name},
          {"median", sorted[sorted.size() / 2]},
          {"least", sorted.front()},
          {"most", sorted.back()}};
}

}  // namespace

double SecondsEach(int count, const std::function<void()>& operation) {
  const auto start = std::chrono::steady_clock::now();
  for (int done = 0; done < count; ++done) operation();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / count;
}

std::vector<Samples> SampleInTurn(int rounds, const std::vector<Contender>& contenders) {
  std::vector<Samples> samples;
  for (const Contender& each : contenders) samples.push_back({each.name, {}});
  for (int round = -1; round < rounds; ++round) {
    for (std::size_t each = 0; each < contenders.size(); ++each) {
      const double sample = contenders[each].sample();
      if (round >= 0) samples[each].values.push_back(sample);
    }
  }
  return samples;
}

void Print(const Operation& operation, const std::vector<Samples>& samples) {
  Json figures = Json::array();
  for (const Samples& each : samples) figures.push_back(Figure(each));
  const Json row{{"operation", operation.name}, {"unit", operation.unit},
                 {"goal", operation.goal},      {"limit", operation.limit},
                 {"budget", operation.budget},  {"figures", std::move(figures)}};
  std::cout << row.dump() << std::endl;
}

void Compare(const Operation& operation, int rounds, const std::vector<Contender>& contenders) {
  Print(operation, SampleInTurn(rounds, contenders));
}

void Fail(const std::string& message) {
  std::cerr << message << "\n";
  std::exit(1);
}
