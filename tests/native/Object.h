// Reference counting for all doubles, and the record of calls.
#pragma once

#include <atomic>
#include <string>

namespace native {

/// Something with a reference count, as a Create function returns it: with one reference. Memory is
/// really given back with the last one, so that the sanitizer sees every use after that.
class Object {
 public:
  enum class Life { kCounted, kConstant };

  explicit Object(const char* kind, Life life = Life::kCounted);
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  void retain();
  void release();
  const char* kind() const { return _kind; }

  /// The object behind a handle.
  static Object* of(const void* handle) { return static_cast<Object*>(const_cast<void*>(handle)); }

 protected:
  virtual ~Object();
  /// Called with the last reference; deletes the object.
  virtual void dispose() { delete this; }

 private:
  const char* const _kind;
  const Life _life;
  std::atomic<int> _references = 1;
};

/// Ends the test program: on a Mac this would crash.
[[noreturn]] void Crash(const std::string& reason);

/// The object behind a handle, which must be of this class.
template <class T>
T* As(const void* handle) {
  if (handle == nullptr) Crash("a null pointer was used");
  T* object = dynamic_cast<T*>(Object::of(handle));
  if (object == nullptr) Crash(std::string("a ") + Object::of(handle)->kind() + " was misused");
  return object;
}

/// Notes a call. False when the test wants it to fail.
bool Begin(const char* function, const std::string& arguments = {});
/// What the failure that has just begun says.
std::string FailureText();

}  // namespace native
