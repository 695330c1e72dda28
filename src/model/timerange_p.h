// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_TIMERANGE_P_H
#define KAVRO_TIMERANGE_P_H

#include <QDateTime>

namespace Kavro
{

//! \brief A range of date-times; a null bound leaves its side open, and both bounds are inclusive.
class TimeRange
{
public:
    virtual ~TimeRange() = default;

    QDateTime maximum;
    QDateTime minimum;

    //! True when both bounds are null, or when \a time is valid and lies within the set bounds.
    bool contains(const QDateTime &time) const
    {
        if (minimum.isNull() && maximum.isNull())
            return true;
        if (time.isNull())
            return false;
        if (!minimum.isNull() && time < minimum)
            return false;
        return maximum.isNull() || !(maximum < time);
    }
};

} // namespace Kavro

#endif
