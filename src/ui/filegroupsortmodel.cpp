// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/filegroupsortmodel.h>

namespace Kavro
{

FileGroupSortModel::FileGroupSortModel(QObject *parent)
    : QSortFilterProxyModel(parent)
{
    setFilterCaseSensitivity(Qt::CaseInsensitive);
    setFilterKeyColumn(-1);
}

FileGroupSortModel::~FileGroupSortModel() = default;

bool FileGroupSortModel::lessThan(const QModelIndex &left, const QModelIndex &right) const
{
    const QString header = sourceModel()->headerData(left.column(), Qt::Horizontal, Qt::DisplayRole).toString();
    const QVariant leftValue = sourceModel()->data(left, Qt::DisplayRole);
    const QVariant rightValue = sourceModel()->data(right, Qt::DisplayRole);
    if (header.contains(tr("count"), Qt::CaseInsensitive) || header.contains(tr("storage"), Qt::CaseInsensitive))
        return leftValue.toLongLong() < rightValue.toLongLong();
    return QString::localeAwareCompare(leftValue.toString(), rightValue.toString()) < 0;
}

bool FileGroupSortModel::filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const
{
    // The files of a group that is shown are shown whatever their names.
    return sourceParent.isValid() || QSortFilterProxyModel::filterAcceptsRow(sourceRow, sourceParent);
}

} // namespace Kavro
