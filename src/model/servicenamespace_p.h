// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_SERVICENAMESPACE_P_H
#define KAVRO_SERVICENAMESPACE_P_H

#include <QString>

namespace Kavro
{

//! The namespace URI of the archive service, bound to the prefix "m".
inline QString serviceNamespaceUri()
{
    return QStringLiteral("http://kavro/8SP/KAVRO");
}

} // namespace Kavro

#endif
