// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILESELECTDIALOG_H
#define KAVRO_FILESELECTDIALOG_H

#include <kavro/kavrotypes.h>
#include <kavro/kavrourl.h>
#include <kavro/kavrowidgets_export.h>

#include <QDialog>
#include <QList>
#include <QVector>

#include <memory>

namespace Kavro
{

class FileQuery;
class FileSelectDialogPrivate;
class KavroClient;

/*!
 * \brief Lets the user choose archived files: runs a query, shows the groups found, opens a group to show its files.
 *
 * The groups found appear as a sortable tree with a filter field; opening a
 * group loads its files without blocking. The query can be edited with
 * QueryDialog; the dialog remembers the last query run and its size in the
 * settings, and restricts every query to the file types it was given.
 *
 * \code
 * Kavro::FileSelectDialog dialog(&client, tr("Open"), false, {}, this);
 * if (dialog.Execute())
 *     open(dialog.GetUrl());
 * \endcode
 */
class KAVROWIDGETS_EXPORT FileSelectDialog : public QDialog
{
    Q_OBJECT

public:
    /*!
     * A dialog over \a client whose accepting button says \a acceptText. With
     * \a multipleSelection several files may be chosen. \a fileTypes restricts
     * the queries to those types; empty allows every type FileTypeManager
     * lists. The client must outlive the dialog.
     */
    FileSelectDialog(KavroClient *client, const QString &acceptText, bool multipleSelection = false,
                     const QVector<FileType> &fileTypes = QVector<FileType>(), QWidget *parent = nullptr);
    ~FileSelectDialog() override;
    Q_DISABLE_COPY_MOVE(FileSelectDialog)

    //! Runs the last query (or the one set) and the dialog; true when the user chose a file.
    bool Execute();

    //! The query the dialog runs; at first the one it ran last, restricted to its file types.
    FileQuery GetQuery() const;
    void SetQuery(const FileQuery &query);
    //! Shows only groups whose texts contain \a text (any case).
    void SetFilterText(const QString &text);

    //! The chosen file's group; empty until a file is chosen.
    QString GetGuid() const;
    //! The chosen file's id; 0 until a file is chosen.
    unsigned int GetFileId() const;
    //! The chosen file as "kavro:///<guid>/<file id>"; empty until a file is chosen.
    KavroUrl GetUrl() const;
    //! Every chosen file, in the order shown.
    QList<KavroUrl> GetUrls() const;

public Q_SLOTS:
    //! Sends the query; the tree is filled when the answer arrives.
    void RunQuery();
    //! Opens QueryDialog on the query, and runs it when accepted.
    void EditQuery();
    void done(int result) override;

Q_SIGNALS:
    //! The answer to the query has arrived: \a error is NoError and the tree shows \a groupCount groups, or it failed.
    void queryFinished(int error, int groupCount);

private:
    const std::unique_ptr<FileSelectDialogPrivate> d;
};

} // namespace Kavro

#endif
