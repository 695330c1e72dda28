// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_LOCATIONSTATESTRING_H
#define KAVRO_LOCATIONSTATESTRING_H

#include <kavro/kavrotypes.h>

namespace Kavro
{

//! \brief The display texts of the location states.
class KAVRO_EXPORT LocationStateString
{
public:
    //! The text of \a state, translated when a catalogue is installed; "Invalid location state" for unknown values.
    static QString GetText(LocationState state);
};

} // namespace Kavro

#endif
