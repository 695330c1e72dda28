// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_CLIENTTREEMODEL_H
#define KAVRO_CLIENTTREEMODEL_H

#include <kavro/kavrowidgets_export.h>

#include <QAbstractItemModel>
#include <QStringList>
#include <QVector>

#include <memory>

namespace Kavro
{

class ClientTreeModelPrivate;
class FileGroupTreeItem;
class KavroClient;

/*!
 * \brief File groups as a tree: one row per group, and under it one row per file, loaded when the group is opened.
 *
 * SetupModelData() fills the model from a query's table (FileGroupData's list
 * form) and adds the column "Location", which holds the archive URL of each
 * group and file. A group row shows an expander until its files are known:
 * opening it asks the client for the group's file list without blocking, and
 * the file rows appear when the answer arrives. An empty list removes the
 * expander; a failed request leaves the group as it was and emits
 * fileListFailed().
 *
 * \code
 * auto *model = new Kavro::ClientTreeModel(&client, this);
 * QStringList headers;
 * Kavro::FileGroupData::GetHeaders(headers);
 * QVector<QStringList> rows;
 * for (const Kavro::FileGroupData &group : reply->groups()) {
 *     QStringList row;
 *     group.ToStringList(row);
 *     rows.append(row);
 * }
 * model->SetupModelData(headers, rows);
 * treeView->setModel(model);
 * \endcode
 */
class KAVROWIDGETS_EXPORT ClientTreeModel : public QAbstractItemModel
{
    Q_OBJECT

public:
    //! A model that asks \a client for file lists; the client must outlive the model.
    explicit ClientTreeModel(KavroClient *client, QObject *parent = nullptr);
    ~ClientTreeModel() override;
    Q_DISABLE_COPY_MOVE(ClientTreeModel)

    /*!
     * Replaces the tree: \a headers plus "Location" become the columns, each
     * of \a rows one file-group row, its guid taken from its last value (as
     * in FileGroupData's list form).
     */
    void SetupModelData(const QStringList &headers, const QVector<QStringList> &rows);

    //! The node behind \a index; the root for an invalid index.
    FileGroupTreeItem *GetItem(const QModelIndex &index) const;

    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &index) const override;
    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    bool hasChildren(const QModelIndex &parent = QModelIndex()) const override;
    bool canFetchMore(const QModelIndex &parent) const override;
    //! Asks the client for the group's files; the rows are inserted when the answer arrives.
    void fetchMore(const QModelIndex &parent) override;

Q_SIGNALS:
    //! The file list of the group \a guid could not be loaded; the group is left as it was.
    void fileListFailed(const QString &guid, int error, const QString &errorString);
    //! The file list of the group \a guid has arrived and its rows are in the model.
    void fileListLoaded(const QString &guid);

private:
    const std::unique_ptr<ClientTreeModelPrivate> d;
};

} // namespace Kavro

#endif
