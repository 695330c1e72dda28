// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_QUERYFIELDS_P_H
#define KAVRO_QUERYFIELDS_P_H

#include <kavro/filequery.h>

#include <QtGlobal>

#include <array>

namespace Kavro
{

//! A search text of FileQuery: its settings key, its label in QueryDialog and its accessors.
struct QueryTextField {
    const char *key;
    const char *label; // translated in the context "Kavro::QueryDialog"
    QString (FileQuery::*get)() const;
    void (FileQuery::*set)(const QString &);
};

//! A time range of FileQuery: its settings key, its label in QueryDialog and the accessors of both bounds.
struct QueryTimeField {
    const char *key;
    const char *label; // translated in the context "Kavro::QueryDialog"
    QDateTime (FileQuery::*getMin)() const;
    void (FileQuery::*setMin)(const QDateTime &);
    QDateTime (FileQuery::*getMax)() const;
    void (FileQuery::*setMax)(const QDateTime &);
};

inline const std::array<QueryTextField, 8> &queryTextFields()
{
    static const std::array<QueryTextField, 8> fields{{
        {"Name", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "&Name:"), &FileQuery::GetFileGroupSearchText,
         &FileQuery::SetFileGroupSearchText},
        {"Comment", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "&Comment:"), &FileQuery::GetCommentSearchText,
         &FileQuery::SetCommentSearchText},
        {"Detail", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "&Detail:"), &FileQuery::GetDetailSearchText,
         &FileQuery::SetDetailSearchText},
        {"Version", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "&Version:"), &FileQuery::GetVersionSearchText,
         &FileQuery::SetVersionSearchText},
        {"Creator", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "C&reator:"), &FileQuery::GetCreatorSearchText,
         &FileQuery::SetCreatorSearchText},
        {"Team", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "&Team:"), &FileQuery::GetTeamMembershipSearchText,
         &FileQuery::SetTeamMembershipSearchText},
        {"LockUser", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "&Locked by:"), &FileQuery::GetLockUser,
         &FileQuery::SetLockUser},
        {"Application", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "Referenced by &application:"),
         &FileQuery::GetReferencingApplication, &FileQuery::SetReferencingApplication},
    }};
    return fields;
}

inline const std::array<QueryTimeField, 4> &queryTimeFields()
{
    static const std::array<QueryTimeField, 4> fields{{
        {"Created", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "Created"), &FileQuery::GetCreationTimeMin,
         &FileQuery::SetCreationTimeMin, &FileQuery::GetCreationTimeMax, &FileQuery::SetCreationTimeMax},
        {"Modified", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "Modified"), &FileQuery::GetModificationTimeMin,
         &FileQuery::SetModificationTimeMin, &FileQuery::GetModificationTimeMax, &FileQuery::SetModificationTimeMax},
        {"BackedUp", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "Backed up"), &FileQuery::GetBackupTimeMin,
         &FileQuery::SetBackupTimeMin, &FileQuery::GetBackupTimeMax, &FileQuery::SetBackupTimeMax},
        {"LifeCycle", QT_TRANSLATE_NOOP("Kavro::QueryDialog", "Life cycle ends"), &FileQuery::GetLifeCycleTimeMin,
         &FileQuery::SetLifeCycleTimeMin, &FileQuery::GetLifeCycleTimeMax, &FileQuery::SetLifeCycleTimeMax},
    }};
    return fields;
}

} // namespace Kavro

#endif
