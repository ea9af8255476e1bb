// A small pair of unsigned integers, used as a sorting measure along a diagonal.
#pragma once

#include <cstddef>
#include <cstdint>

class VRPosition {
  public:
    VRPosition() = default;
    VRPosition(std::uint64_t x, std::uint64_t y) : _x(x), _y(y) {}
    static VRPosition positionWithX(std::uint64_t x, std::uint64_t y) { return {x, y}; }

    std::uint64_t x() const { return _x; }
    std::uint64_t y() const { return _y; }
    void setX(std::uint64_t x) { _x = x; }
    void setY(std::uint64_t y) { _y = y; }

    // (x + y) - (other.x + other.y) in unsigned arithmetic: a position further out wraps.
    std::uint64_t linearDistanceToPosition(const VRPosition& other) const {
        return (_x + _y) - (other._x + other._y);
    }
    std::size_t hash() const { return static_cast<std::size_t>(_x ^ _y); }
    friend bool operator==(const VRPosition&, const VRPosition&) = default;

  private:
    std::uint64_t _x = 0;
    std::uint64_t _y = 0;
};
