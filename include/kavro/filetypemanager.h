// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILETYPEMANAGER_H
#define KAVRO_FILETYPEMANAGER_H

#include <kavro/kavrotypes.h>

#include <QVector>

#include <memory>

namespace Kavro
{

class FileTypeManagerPrivate;

/*!
 * \brief The file types offered to the user, and the texts of all file types.
 *
 * The list holds, in ascending order, every file type whose switch
 * "Type_..." in the section "KAVRO" of the configuration is true (the
 * default). FileTypeUnknown and FileTypePck are never listed.
 *
 * \code
 * const QVector<Kavro::FileType> types = Kavro::FileTypeManager::Instance()->GetTypes();
 * for (Kavro::FileType type : types)
 *     comboBox->addItem(Kavro::FileTypeManager::GetText(type), int(type));
 * \endcode
 */
class KAVRO_EXPORT FileTypeManager
{
public:
    FileTypeManager(const FileTypeManager &other);
    FileTypeManager &operator=(const FileTypeManager &other);
    virtual ~FileTypeManager();

    //! The process-wide list, read from the configuration on the first call.
    static FileTypeManager *Instance();

    //! Number of listed types.
    int GetCount() const;
    //! The listed type at \a index; FileTypeUnknown when out of range or before Instance() was called.
    static FileType GetType(int index);
    //! The display text of GetType(\a index).
    static QString GetTextByIndex(int index);
    //! A copy of the whole list, for filling type selection boxes.
    QVector<FileType> GetTypes() const;
    //! The display text of any value, listed or not; "Invalid file type" outside the enumeration.
    static QString GetText(FileType type);

private:
    FileTypeManager();

    const std::unique_ptr<FileTypeManagerPrivate> d;
};

} // namespace Kavro

#endif
