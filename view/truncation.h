#pragma once

#include <climits>
#include <cmath>

// Truncation toward zero (how pixel values and decimetre counts are taken
// from doubles), kept defined for NaN and values outside int.
inline int truncateToInt(double v)
{
    if (std::isnan(v))
        return 0;
    if (v >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (v <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(v);
}
