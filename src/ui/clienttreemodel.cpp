// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/clienttreemodel.h>

#include <kavro/filegrouptreeitem.h>
#include <kavro/kavroclient.h>
#include <kavro/kavroreply.h>
#include <kavro/kavrourl.h>

#include "trace_p.h"

#include <QHash>
#include <QPointer>

namespace Kavro
{

class ClientTreeModelPrivate
{
public:
    explicit ClientTreeModelPrivate(KavroClient *client)
        : client(client)
        , root(std::make_unique<FileGroupTreeItem>(QVector<QVariant>(), QString(), 0, false))
    {
    }

    //! The group row of \a guid, or null when the tree no longer holds it.
    FileGroupTreeItem *group(const QString &guid) const
    {
        for (int row = 0; row < root->ChildCount(); ++row) {
            FileGroupTreeItem *item = root->Child(row);
            if (item->GetGuid() == guid)
                return item;
        }
        return nullptr;
    }

    void abortFetches(ClientTreeModel *model)
    {
        // Taken out first: abort() finishes the reply, whose handler looks the guid up again.
        const QHash<QString, QPointer<KavroReply>> fetches = std::exchange(pendingFetches, {});
        for (const QPointer<KavroReply> &reply : fetches) {
            if (reply) {
                QObject::disconnect(reply, nullptr, model, nullptr);
                reply->abort();
                reply->deleteLater();
            }
        }
    }

    KavroClient *const client;
    std::unique_ptr<FileGroupTreeItem> root;
    QHash<QString, QPointer<KavroReply>> pendingFetches;
};

ClientTreeModel::ClientTreeModel(KavroClient *client, QObject *parent)
    : QAbstractItemModel(parent)
    , d(std::make_unique<ClientTreeModelPrivate>(client))
{
}

ClientTreeModel::~ClientTreeModel()
{
    d->abortFetches(this);
}

void ClientTreeModel::SetupModelData(const QStringList &headers, const QVector<QStringList> &rows)
{
    // The texts say "%!" where a number would go; they are written as they stand.
    if (headers.size() < 1)
        KAVRO_TRACE_WARNING(QStringLiteral("ClientTreeModel::SetupModelData: Invalid number of columns (%!)"));
    if (rows.size() < 1)
        KAVRO_TRACE_WARNING(QStringLiteral("ClientTreeModel::SetupModelData: Invalid number of rows (%!)"));

    beginResetModel();
    d->abortFetches(this);
    QVector<QVariant> headerValues;
    for (const QString &header : headers)
        headerValues.append(header);
    headerValues.append(tr("Location"));
    const int columns = int(headerValues.size());
    d->root = std::make_unique<FileGroupTreeItem>(headerValues, QString(), 0, false);
    for (const QStringList &row : rows) {
        const int number = d->root->ChildCount();
        d->root->InsertChildren(number, 1, columns);
        FileGroupTreeItem *item = d->root->Child(number);
        for (int column = 0; column < row.size() && column < columns - 1; ++column)
            item->SetData(column, row.at(column));
        const QString guid = row.value(row.size() - 1);
        item->SetData(columns - 1, KavroUrl::fromKavroGuid(guid).toString());
        item->SetGuid(guid);
        item->SetHasChildren(true);
    }
    endResetModel();
}

FileGroupTreeItem *ClientTreeModel::GetItem(const QModelIndex &index) const
{
    if (index.isValid())
        return static_cast<FileGroupTreeItem *>(index.internalPointer());
    return d->root.get();
}

QVariant ClientTreeModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::EditRole && role != Qt::ToolTipRole))
        return QVariant();
    return GetItem(index)->Data(index.column());
}

QVariant ClientTreeModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole)
        return d->root->Data(section);
    return QVariant();
}

QModelIndex ClientTreeModel::index(int row, int column, const QModelIndex &parent) const
{
    if (!hasIndex(row, column, parent))
        return QModelIndex();
    FileGroupTreeItem *child = GetItem(parent)->Child(row);
    return child ? createIndex(row, column, child) : QModelIndex();
}

QModelIndex ClientTreeModel::parent(const QModelIndex &index) const
{
    if (!index.isValid())
        return QModelIndex();
    FileGroupTreeItem *parentItem = GetItem(index)->Parent();
    if (!parentItem || parentItem == d->root.get())
        return QModelIndex();
    return createIndex(parentItem->ChildNumber(), 0, parentItem);
}

int ClientTreeModel::rowCount(const QModelIndex &parent) const
{
    if (parent.column() > 0)
        return 0;
    return GetItem(parent)->ChildCount();
}

int ClientTreeModel::columnCount(const QModelIndex &) const
{
    return d->root->ColumnCount();
}

Qt::ItemFlags ClientTreeModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (GetItem(index)->Parent() != d->root.get())
        flags |= Qt::ItemNeverHasChildren;
    return flags;
}

bool ClientTreeModel::hasChildren(const QModelIndex &parent) const
{
    if (parent.column() > 0)
        return false;
    const FileGroupTreeItem *item = GetItem(parent);
    return item->ChildCount() > 0 || (parent.isValid() && item->GetHasChildren());
}

bool ClientTreeModel::canFetchMore(const QModelIndex &parent) const
{
    if (!parent.isValid() || parent.column() > 0)
        return false;
    const FileGroupTreeItem *item = GetItem(parent);
    return item->GetHasChildren() && item->ChildCount() == 0;
}

void ClientTreeModel::fetchMore(const QModelIndex &parent)
{
    if (!canFetchMore(parent) || !d->client)
        return;
    const QString guid = GetItem(parent)->GetGuid();
    if (d->pendingFetches.contains(guid))
        return;
    KavroReply *reply = d->client->GetFileListRequest(guid);
    d->pendingFetches.insert(guid, reply);
    connect(reply, &KavroReply::finished, this, [this, guid, reply] {
        reply->deleteLater();
        if (d->pendingFetches.value(guid) != reply)
            return;
        d->pendingFetches.remove(guid);
        FileGroupTreeItem *item = d->group(guid);
        if (reply->error() != NoError) {
            KAVRO_TRACE_WARNING(
                QStringLiteral("ClientTreeModel::fetchMore: KavroError caught: %1").arg(reply->error()));
            Q_EMIT fileListFailed(guid, reply->error(), reply->errorString());
            return;
        }
        if (!item || item->ChildCount() > 0 || !item->GetHasChildren())
            return;
        const QStringList files = reply->files();
        const int count = int(files.size() / 2);
        const QModelIndex index = createIndex(item->ChildNumber(), 0, item);
        if (count < 1) {
            // No rows to insert: the view learns of the lost expander through a layout change.
            Q_EMIT layoutAboutToBeChanged({index});
            item->SetHasChildren(false);
            Q_EMIT layoutChanged({index});
        } else {
            beginInsertRows(index, 0, count - 1);
            item->InsertChildren(0, count, columnCount());
            for (int i = 0; i < count; ++i) {
                FileGroupTreeItem *file = item->Child(i);
                const unsigned int fileId = files.at(2 * i).toUInt();
                file->SetData(0, files.at(2 * i + 1));
                file->SetData(columnCount() - 1, KavroUrl::fromKavroIds(guid, fileId).toString());
                file->SetFileId(fileId);
            }
            endInsertRows();
        }
        Q_EMIT fileListLoaded(guid);
    });
}

} // namespace Kavro
