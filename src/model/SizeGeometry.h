// Small operations on sizes that the logic takes for granted (larger side, landscape order,
// scaling). Pure; callable from any thread.
#pragma once

#include "platform/Geometry.h"

// The larger and the smaller side.
double maxSize(CGSize size);
double minSize(CGSize size);
// The larger side first.
CGSize landscapeSize(CGSize size);
// Sides exchanged when `rotate` is true.
CGSize rotate(CGSize size, bool rotate);

inline CGSize operator*(CGSize size, double factor) {
    return {size.width * factor, size.height * factor};
}
inline CGSize operator/(CGSize size, double divisor) {
    return {size.width / divisor, size.height / divisor};
}
