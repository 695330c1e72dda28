// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILEQUERY_H
#define KAVRO_FILEQUERY_H

#include <kavro/kavrotypes.h>

#include <QDateTime>

#include <memory>

namespace Kavro
{

class FileQueryPrivate;

/*!
 * \brief The criteria of a search for file groups.
 *
 * Four time ranges (a null bound leaves its side open, both bounds are
 * inclusive), a list of wanted file types, a location state and a lock
 * state (Undefined means any) and eight search texts.
 *
 * \code
 * Kavro::FileQuery query;
 * query.AddFileType(Kavro::FileTypeImage);
 * query.SetCreationTimeMin(QDateTime::currentDateTimeUtc().addDays(-7));
 * query.SetCreatorSearchText(QStringLiteral("alice"));
 * \endcode
 */
class KAVRO_EXPORT FileQuery
{
public:
    FileQuery();
    FileQuery(const FileQuery &other);
    FileQuery &operator=(const FileQuery &other);
    virtual ~FileQuery();

    //! Clears every criterion: open ranges, no file types, any state, empty (not null) texts.
    void Reset();

    void SetBackupTimeMin(const QDateTime &time);
    void SetBackupTimeMax(const QDateTime &time);
    QDateTime GetBackupTimeMin() const;
    QDateTime GetBackupTimeMax() const;
    bool IsBackupTimeInRange(const QDateTime &time) const;

    void SetCreationTimeMin(const QDateTime &time);
    void SetCreationTimeMax(const QDateTime &time);
    QDateTime GetCreationTimeMin() const;
    QDateTime GetCreationTimeMax() const;
    bool IsCreationTimeInRange(const QDateTime &time) const;

    void SetModificationTimeMin(const QDateTime &time);
    void SetModificationTimeMax(const QDateTime &time);
    QDateTime GetModificationTimeMin() const;
    QDateTime GetModificationTimeMax() const;
    bool IsModificationTimeInRange(const QDateTime &time) const;

    void SetLifeCycleTimeMin(const QDateTime &time);
    void SetLifeCycleTimeMax(const QDateTime &time);
    QDateTime GetLifeCycleTimeMin() const;
    QDateTime GetLifeCycleTimeMax() const;
    bool IsLifeCycleInRange(const QDateTime &time) const;

    //! Appends a wanted file type; the same type may be listed twice.
    void AddFileType(FileType type);
    void ClearFileTypeList();
    int GetFileTypeListSize() const;
    //! The listed type at \a index; FileTypeUnknown outside the list.
    FileType GetFileTypeAt(int index) const;
    bool IsFileTypeListed(FileType type) const;

    void SetLocationState(LocationState state);
    LocationState GetLocationState() const;
    void SetLockState(LockState state);
    LockState GetLockState() const;

    void SetFileGroupSearchText(const QString &text);
    QString GetFileGroupSearchText() const;
    void SetCommentSearchText(const QString &text);
    QString GetCommentSearchText() const;
    void SetCreatorSearchText(const QString &text);
    QString GetCreatorSearchText() const;
    void SetDetailSearchText(const QString &text);
    QString GetDetailSearchText() const;
    void SetTeamMembershipSearchText(const QString &text);
    QString GetTeamMembershipSearchText() const;
    void SetVersionSearchText(const QString &text);
    QString GetVersionSearchText() const;
    void SetLockUser(const QString &user);
    QString GetLockUser() const;
    void SetReferencingApplication(const QString &application);
    QString GetReferencingApplication() const;

    /*!
     * Parses \a text as "yyyy-MM-dd hh:mm:ss.zzz", "yyyy-MM-ddThh:mm:ss.zzz",
     * "yyyy-MM-dd hh:mm:ss" or "yyyy-MM-ddThh:mm:ss", the first that fits;
     * an invalid date-time when none does.
     */
    static QDateTime getValidDateTimeFromString(const QString &text);

private:
    const std::unique_ptr<FileQueryPrivate> d;
};

} // namespace Kavro

#endif
