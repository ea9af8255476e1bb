#include "model/SizeGeometry.h"

#include <algorithm>

double maxSize(CGSize size) {
    return std::max(size.width, size.height);
}
double minSize(CGSize size) {
    return std::min(size.width, size.height);
}
CGSize landscapeSize(CGSize size) {
    return {maxSize(size), minSize(size)};
}
CGSize rotate(CGSize size, bool rotate) {
    return rotate ? CGSize{size.height, size.width} : size;
}
