// Comparing figures: everybody is sampled in turn, so that whatever else the machine does falls on
// all alike, and the median counts.
#pragma once

#include <functional>
#include <string>
#include <vector>

/// Somebody who is measured; the first one of a comparison is the daemon, the second one the floor.
struct Contender {
  std::string name;
  std::function<double()> sample;  ///< one figure, in the comparison's unit
};

/// Seconds that an operation takes, on average of `count`.
double SecondsEach(int count, const std::function<void()>& operation);

/// What is compared.
struct Operation {
  std::string name;
  std::string unit;
  std::string goal;   ///< in words
  double limit = 0;   ///< the greatest quotient of the daemon's median and the floor's, if not 0
  double budget = 0;  ///< the greatest median of the daemon's, if not 0
};

/// Somebody's samples.
struct Samples {
  std::string name;
  std::vector<double> values;
};

/// Takes `rounds` samples of each in turn, after one that does not count.
std::vector<Samples> SampleInTurn(int rounds, const std::vector<Contender>& contenders);

/// Prints a row for the script "bench" to put into its table.
void Print(const Operation& operation, const std::vector<Samples>& samples);

/// Samples everybody and prints the row.
void Compare(const Operation& operation, int rounds, const std::vector<Contender>& contenders);

/// Ends the program with a message: what is measured does not work.
[[noreturn]] void Fail(const std::string& message);
