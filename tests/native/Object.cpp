#include "tests/native/Object.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <utility>

#include "tests/native/Doubles.h"

namespace native {
namespace {

/// A failure that a test asked for.
struct Failure {
  std::string function;
  int callsToGo;
  std::string text;
};

/// Never destroyed: threads of the doubles outlive main().
struct Book {
  std::mutex mutex;
  std::map<const Object*, int> references;  ///< of counted objects: 1, of constants: their surplus
  std::vector<std::string> calls;
  std::vector<Failure> failures;
  Mac mac;
};

Book& book() {
  static Book* const only = new Book;
  return *only;
}

thread_local std::string failureText;

std::string nameOf(const std::string& call) { return call.substr(0, call.find('(')); }

}  // namespace

Object::Object(const char* kind, Life life) : _kind(kind), _life(life) {
  const std::lock_guard lock(book().mutex);
  if (life == Life::kCounted) book().references[this] = 1;
}

Object::~Object() {
  const std::lock_guard lock(book().mutex);
  book().references.erase(this);
}

void Object::retain() {
  ++_references;
  if (_life == Life::kCounted) return;
  const std::lock_guard lock(book().mutex);
  ++book().references[this];
}

void Object::release() {
  if (_life == Life::kCounted) {
    if (--_references == 0) dispose();
    return;
  }
  const std::lock_guard lock(book().mutex);
  if (--book().references[this] < 0) Crash(std::string(_kind) + " was released once too often");
}

void Crash(const std::string& reason) {
  std::fprintf(stderr, "A Mac would crash here: %s.\n", reason.c_str());
  std::abort();
}

bool Begin(const char* function, const std::string& arguments) {
  const std::lock_guard lock(book().mutex);
  book().calls.push_back(arguments.empty() ? function : function + ("(" + arguments + ")"));
  std::vector<Failure>& failures = book().failures;
  for (auto failure = failures.begin(); failure != failures.end(); ++failure) {
    if (failure->function != function || --failure->callsToGo > 0) continue;
    failureText = failure->text;
    failures.erase(failure);
    return false;
  }
  return true;
}

std::string FailureText() {
  const std::string text = std::exchange(failureText, {});
  return text.empty() ? "It cannot be done." : text;
}

Mac& TheMac() { return book().mac; }

std::vector<std::string> Calls() {
  const std::lock_guard lock(book().mutex);
  return book().calls;
}

void ForgetCalls() {
  const std::lock_guard lock(book().mutex);
  book().calls.clear();
}

int CallsOf(const std::string& function) {
  int count = 0;
  for (const std::string& call : Calls()) count += nameOf(call) == function ? 1 : 0;
  return count;
}

void Fail(const std::string& function, int number, const std::string& text) {
  const std::lock_guard lock(book().mutex);
  book().failures.push_back({function, number, text});
}

std::vector<std::string> FailuresLeft() {
  const std::lock_guard lock(book().mutex);
  std::vector<std::string> left;
  for (const Failure& failure : book().failures) left.push_back(failure.function);
  return left;
}

std::string LiveObjects() {
  const std::lock_guard lock(book().mutex);
  std::map<std::string, int> kinds;
  for (const auto& [object, references] : book().references) kinds[object->kind()] += references;
  std::string text;
  for (const auto& [kind, count] : kinds) {
    if (count == 0) continue;
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " x " + kind;
  }
  return text;
}

}  // namespace native
