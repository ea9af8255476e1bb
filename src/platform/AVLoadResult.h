// The outcome of one asynchronous property load of an asset or track: a value, or the error
// that says why the load failed so that the caller's fallback applies.
#pragma once

#include <optional>
#include <utility>

#include "platform/Error.h"

template <class T>
class AVLoadResult {
  public:
    AVLoadResult(T value) : _value(std::move(value)) {}
    AVLoadResult(platform::ErrorRef error) : _error(std::move(error)) {}

    bool ok() const { return _value.has_value(); }
    explicit operator bool() const { return ok(); }
    // Only when ok().
    const T& value() const { return *_value; }
    T valueOr(T fallback) const { return _value ? *_value : std::move(fallback); }
    // Set when the load failed.
    const platform::ErrorRef& error() const { return _error; }

  private:
    std::optional<T> _value;
    platform::ErrorRef _error;
};
