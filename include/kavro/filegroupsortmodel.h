// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILEGROUPSORTMODEL_H
#define KAVRO_FILEGROUPSORTMODEL_H

#include <kavro/kavrowidgets_export.h>

#include <QSortFilterProxyModel>

namespace Kavro
{

/*!
 * \brief Sorts and filters ClientTreeModel's rows for a view.
 *
 * Columns whose header contains the word "count" or "storage" (as
 * translated, in any case) sort as numbers, all others by the locale's text
 * order. The filter applies to file-group rows only: the files of a group
 * that is shown are always shown.
 */
class KAVROWIDGETS_EXPORT FileGroupSortModel : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    explicit FileGroupSortModel(QObject *parent = nullptr);
    ~FileGroupSortModel() override;
    Q_DISABLE_COPY_MOVE(FileGroupSortModel)

protected:
    bool lessThan(const QModelIndex &left, const QModelIndex &right) const override;
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;
};

} // namespace Kavro

#endif
