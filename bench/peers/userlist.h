// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
// The one operation the SOAP peer serves, shared by its server and client.
#pragma once

#include <QString>
#include <QStringList>

namespace UserList
{
inline QString messageNamespace()
{
    return QStringLiteral("urn:kavro-bench:userlist");
}

inline QString operation()
{
    return QStringLiteral("GetUserList");
}

inline QString userElement()
{
    return QStringLiteral("user");
}

// A few names, like the reply of an archive server with a handful of users.
inline QStringList users()
{
    return {QStringLiteral("alice"), QStringLiteral("bob"), QStringLiteral("carol"), QStringLiteral("dave"),
            QStringLiteral("erin")};
}
} // namespace UserList
