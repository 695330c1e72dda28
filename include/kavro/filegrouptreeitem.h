// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILEGROUPTREEITEM_H
#define KAVRO_FILEGROUPTREEITEM_H

#include <kavro/kavrowidgets_export.h>

#include <QString>
#include <QVariant>
#include <QVector>

#include <memory>

namespace Kavro
{

class FileGroupTreeItemPrivate;

/*!
 * \brief One node of ClientTreeModel's tree: the root, a file group, or a file of a group.
 *
 * A node holds one value per column, the guid of its file group, the file id
 * (on file rows), whether a group may still have files to show, its parent,
 * and the child nodes it owns. Copying a node copies its children too.
 */
class KAVROWIDGETS_EXPORT FileGroupTreeItem
{
public:
    FileGroupTreeItem(const QVector<QVariant> &values, const QString &guid, unsigned int fileId, bool hasChildren,
                      FileGroupTreeItem *parent = nullptr);
    //! A copy of \a other and its children, with the same parent.
    FileGroupTreeItem(const FileGroupTreeItem &other);
    FileGroupTreeItem &operator=(const FileGroupTreeItem &other);
    ~FileGroupTreeItem();

    //! The child at \a number; null when out of range.
    FileGroupTreeItem *Child(int number);
    int ChildCount() const;
    //! This node's row under its parent; 0 for the root.
    int ChildNumber() const;
    int ColumnCount() const;
    //! The value of \a column; an invalid QVariant when out of range.
    QVariant Data(int column) const;
    //! Sets the value of \a column; false when out of range.
    bool SetData(int column, const QVariant &value);
    //! Inserts \a count children with \a columns empty values at \a position; false when out of range.
    bool InsertChildren(int position, int count, int columns);
    //! Removes and deletes \a count children from \a position; false when out of range.
    bool RemoveChildren(int position, int count);
    FileGroupTreeItem *Parent();

    QString GetGuid() const;
    void SetGuid(const QString &guid);
    unsigned int GetFileId() const;
    void SetFileId(unsigned int fileId);
    //! True for a group row whose files have not been proved absent.
    bool GetHasChildren() const;
    void SetHasChildren(bool hasChildren);

private:
    friend class FileGroupTreeItemPrivate;
    const std::unique_ptr<FileGroupTreeItemPrivate> d;
};

} // namespace Kavro

#endif
