#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

/// Sets an environment variable (null: unsets it) and restores it at the end.
class TEnvironment {
 public:
  TEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    Put(value);
  }
  ~TEnvironment() { Put(old_ ? old_->c_str() : nullptr); }
  TEnvironment(const TEnvironment&) = delete;
  TEnvironment& operator=(const TEnvironment&) = delete;

 private:
  void Put(const char* value) const {
    value == nullptr ? unsetenv(name_) : setenv(name_, value, 1);
  }

  const char* name_;
  std::optional<std::string> old_;
};
