// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROERRORSTRING_H
#define KAVRO_KAVROERRORSTRING_H

#include <kavro/kavrotypes.h>

namespace Kavro
{

/*!
 * \brief The display texts of the error codes.
 *
 * Several texts end in one blank on purpose, so that callers can append
 * detail (the text of ErrorSoapMissingTag is followed by the tag's name).
 *
 * \code
 * qWarning() << Kavro::KavroErrorString::Get(Kavro::ErrorNotConnected);
 * \endcode
 */
class KAVRO_EXPORT KavroErrorString
{
public:
    //! The text of \a error, translated when a catalogue is installed; "Invalid error code" for unknown codes.
    static QString Get(KavroError error);
};

} // namespace Kavro

#endif
