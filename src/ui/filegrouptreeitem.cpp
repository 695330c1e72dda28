// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include <kavro/filegrouptreeitem.h>

#include <memory>
#include <vector>

namespace Kavro
{

class FileGroupTreeItemPrivate
{
public:
    QVector<QVariant> values;
    QString guid;
    unsigned int fileId = 0;
    bool hasChildren = false;
    FileGroupTreeItem *parent = nullptr;
    std::vector<std::unique_ptr<FileGroupTreeItem>> children;

    void copyFrom(const FileGroupTreeItemPrivate &other, FileGroupTreeItem *self)
    {
        values = other.values;
        guid = other.guid;
        fileId = other.fileId;
        hasChildren = other.hasChildren;
        children.clear();
        for (const auto &child : other.children) {
            children.push_back(std::make_unique<FileGroupTreeItem>(*child));
            children.back()->d->parent = self;
        }
    }
};

FileGroupTreeItem::FileGroupTreeItem(const QVector<QVariant> &values, const QString &guid, unsigned int fileId,
                                     bool hasChildren, FileGroupTreeItem *parent)
    : d(std::make_unique<FileGroupTreeItemPrivate>())
{
    d->values = values;
    d->guid = guid;
    d->fileId = fileId;
    d->hasChildren = hasChildren;
    d->parent = parent;
}

FileGroupTreeItem::FileGroupTreeItem(const FileGroupTreeItem &other)
    : d(std::make_unique<FileGroupTreeItemPrivate>())
{
    d->parent = other.d->parent;
    d->copyFrom(*other.d, this);
}

FileGroupTreeItem &FileGroupTreeItem::operator=(const FileGroupTreeItem &other)
{
    if (this != &other) {
        // Copied first: other may be one of this node's own descendants.
        const FileGroupTreeItem copy(other);
        d->copyFrom(*copy.d, this);
    }
    return *this;
}

FileGroupTreeItem::~FileGroupTreeItem() = default;

FileGroupTreeItem *FileGroupTreeItem::Child(int number)
{
    return number >= 0 && number < ChildCount() ? d->children[size_t(number)].get() : nullptr;
}

int FileGroupTreeItem::ChildCount() const
{
    return int(d->children.size());
}

int FileGroupTreeItem::ChildNumber() const
{
    if (!d->parent)
        return 0;
    const auto &siblings = d->parent->d->children;
    for (size_t i = 0; i < siblings.size(); ++i) {
        if (siblings[i].get() == this)
            return int(i);
    }
    return 0;
}

int FileGroupTreeItem::ColumnCount() const
{
    return int(d->values.size());
}

QVariant FileGroupTreeItem::Data(int column) const
{
    return d->values.value(column);
}

bool FileGroupTreeItem::SetData(int column, const QVariant &value)
{
    if (column < 0 || column >= ColumnCount())
        return false;
    d->values[column] = value;
    return true;
}

bool FileGroupTreeItem::InsertChildren(int position, int count, int columns)
{
    if (position < 0 || position > ChildCount() || count < 0 || columns < 0)
        return false;
    std::vector<std::unique_ptr<FileGroupTreeItem>> inserted;
    for (int i = 0; i < count; ++i)
        inserted.push_back(std::make_unique<FileGroupTreeItem>(QVector<QVariant>(columns), d->guid, 0, false, this));
    d->children.insert(d->children.begin() + position, std::make_move_iterator(inserted.begin()),
                       std::make_move_iterator(inserted.end()));
    return true;
}

bool FileGroupTreeItem::RemoveChildren(int position, int count)
{
    if (position < 0 || count < 0 || position + count > ChildCount())
        return false;
    d->children.erase(d->children.begin() + position, d->children.begin() + position + count);
    return true;
}

FileGroupTreeItem *FileGroupTreeItem::Parent()
{
    return d->parent;
}

QString FileGroupTreeItem::GetGuid() const
{
    return d->guid;
}

void FileGroupTreeItem::SetGuid(const QString &guid)
{
    d->guid = guid;
}

unsigned int FileGroupTreeItem::GetFileId() const
{
    return d->fileId;
}

void FileGroupTreeItem::SetFileId(unsigned int fileId)
{
    d->fileId = fileId;
}

bool FileGroupTreeItem::GetHasChildren() const
{
    return d->hasChildren;
}

void FileGroupTreeItem::SetHasChildren(bool hasChildren)
{
    d->hasChildren = hasChildren;
}

} // namespace Kavro
