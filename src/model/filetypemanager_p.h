// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILETYPEMANAGER_P_H
#define KAVRO_FILETYPEMANAGER_P_H

#include <kavro/filetypemanager.h>

namespace Kavro
{

class Settings;

class FileTypeManagerPrivate
{
public:
    QVector<FileType> types;
};

//! The file types whose switch in \a settings is true, in ascending order.
QVector<FileType> readListedFileTypes(const Settings &settings);

} // namespace Kavro

#endif
