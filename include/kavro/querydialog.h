// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_QUERYDIALOG_H
#define KAVRO_QUERYDIALOG_H

#include <kavro/kavrotypes.h>
#include <kavro/kavrowidgets_export.h>

#include <QDialog>
#include <QVector>

#include <memory>

namespace Kavro
{

class FileQuery;
class QueryDialogPrivate;

/*!
 * \brief Edits a FileQuery: search texts, file types, location and lock state, and four time ranges.
 *
 * Every bound of a time range may stay open. Times are shown and taken in
 * UTC or in local time, as \a useUtc says (KavroClient::IsUseUtc()). The
 * dialog remembers its size in the settings.
 *
 * \code
 * Kavro::QueryDialog dialog(query, client.IsUseUtc(), {}, this);
 * if (dialog.exec() == QDialog::Accepted)
 *     query = dialog.GetQuery();
 * \endcode
 */
class KAVROWIDGETS_EXPORT QueryDialog : public QDialog
{
    Q_OBJECT

public:
    /*!
     * A dialog showing \a query. \a fileTypes are the types offered; empty
     * offers every type FileTypeManager lists. Types of the query that are not
     * offered are dropped.
     */
    QueryDialog(const FileQuery &query, bool useUtc, const QVector<FileType> &fileTypes = QVector<FileType>(),
                QWidget *parent = nullptr);
    ~QueryDialog() override;
    Q_DISABLE_COPY_MOVE(QueryDialog)

    //! The query as the dialog shows it now.
    FileQuery GetQuery() const;

public Q_SLOTS:
    void done(int result) override;

private:
    const std::unique_ptr<QueryDialogPrivate> d;
};

} // namespace Kavro

#endif
