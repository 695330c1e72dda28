// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#include "filetypemanager_p.h"

#include "settings_p.h"
#include "texttable_p.h"
#include "trace_p.h"

#include <atomic>
#include <mutex>

namespace Kavro
{

namespace
{
struct FileTypeEntry {
    const char *settingsKey; // null: never listed
    const char *text;
};

// Indexed by FileType. The key of 12 and its text differ on purpose.
const FileTypeEntry s_fileTypes[] = {
    {nullptr, QT_TRANSLATE_NOOP("QObject", "Unknown")},
    {"Type_TransmissionSystem_XML", QT_TRANSLATE_NOOP("QObject", "Transmission System (XML)")},
    {"Type_TransmissionSystem_Text", QT_TRANSLATE_NOOP("QObject", "Transmission System (Text)")},
    {"Type_TransmissionSystem_Binary", QT_TRANSLATE_NOOP("QObject", "Transmission System (Binary)")},
    {"Type_TransmissionSystem_Z2_XML", QT_TRANSLATE_NOOP("QObject", "Transmission System (Z2 XML)")},
    {"Type_DecodedText_XML", QT_TRANSLATE_NOOP("QObject", "Decoded Text (XML)")},
    {"Type_DecodedText_Text", QT_TRANSLATE_NOOP("QObject", "Decoded Text (Text)")},
    {"Type_DecodedText_Z2_XML", QT_TRANSLATE_NOOP("QObject", "Decoded Text (Z2 XML)")},
    {"Type_ScanRecording", QT_TRANSLATE_NOOP("QObject", "Scan Recording")},
    {"Type_IfRecording", QT_TRANSLATE_NOOP("QObject", "IF Recording")},
    {"Type_AudioRecording", QT_TRANSLATE_NOOP("QObject", "Audio Recording")},
    {"Type_Image", QT_TRANSLATE_NOOP("QObject", "Image")},
    {"Type_MissionPlanningTool", QT_TRANSLATE_NOOP("QObject", "Propagation Calculation Tool")},
    {"Type_CND", QT_TRANSLATE_NOOP("QObject", "Communication Network Diagram")},
    {"Type_Report_References", QT_TRANSLATE_NOOP("QObject", "Report File Reference List")},
    {"Type_OrdanResults", QT_TRANSLATE_NOOP("QObject", "Ordan Results")},
    {nullptr, QT_TRANSLATE_NOOP("QObject", "PCK File")},
    {"Type_RAD", QT_TRANSLATE_NOOP("QObject", "RAD File")},
    {"Type_Report_Fragment", QT_TRANSLATE_NOOP("QObject", "Report Fragment")},
    {"Type_Rovec_IqRecording", QT_TRANSLATE_NOOP("QObject", "Rovec IQ recording")},
    {"Type_TechnicalParameters", QT_TRANSLATE_NOOP("QObject", "Technical Parameters")},
};
constexpr qint32 s_fileTypeCount = static_cast<qint32>(std::size(s_fileTypes));
static_assert(s_fileTypeCount == FileTypeTechnicalParameters + 1, "one entry per file type");

// Created once and never destroyed: the list lives as long as the process.
std::atomic<FileTypeManager *> s_instance{nullptr};
std::once_flag s_instanceOnce;
} // namespace

QVector<FileType> readListedFileTypes(const Settings &settings)
{
    QVector<FileType> types;
    for (qint32 value = 0; value < s_fileTypeCount; ++value) {
        const char *key = s_fileTypes[value].settingsKey;
        if (key && settings.boolValue(QLatin1String(key), true))
            types.append(static_cast<FileType>(value));
    }
    return types;
}

FileTypeManager::FileTypeManager()
    : d(std::make_unique<FileTypeManagerPrivate>())
{
    KAVRO_TRACE_INFO(QStringLiteral("FileTypeManager::FileTypeManager: Start"));
    d->types = readListedFileTypes(Settings(Settings::kavroSection()));
    KAVRO_TRACE_INFO(QStringLiteral("FileTypeManager::FileTypeManager: End"));
}

FileTypeManager::FileTypeManager(const FileTypeManager &other)
    : d(std::make_unique<FileTypeManagerPrivate>(*other.d))
{
}

FileTypeManager &FileTypeManager::operator=(const FileTypeManager &other)
{
    *d = *other.d;
    return *this;
}

FileTypeManager::~FileTypeManager()
{
    KAVRO_TRACE_INFO(QStringLiteral("FileTypeManager::~FileTypeManager: Start"));
    d->types.clear();
    KAVRO_TRACE_INFO(QStringLiteral("FileTypeManager::~FileTypeManager: End"));
}

FileTypeManager *FileTypeManager::Instance()
{
    std::call_once(s_instanceOnce, [] {
        s_instance.store(new FileTypeManager, std::memory_order_release);
    });
    return s_instance.load(std::memory_order_acquire);
}

int FileTypeManager::GetCount() const
{
    return d->types.size();
}

FileType FileTypeManager::GetType(int index)
{
    const FileTypeManager *manager = s_instance.load(std::memory_order_acquire);
    if (!manager || index < 0 || index >= manager->GetCount())
        return FileTypeUnknown;
    return manager->d->types.at(index);
}

QString FileTypeManager::GetTextByIndex(int index)
{
    return GetText(GetType(index));
}

QVector<FileType> FileTypeManager::GetTypes() const
{
    return d->types;
}

QString FileTypeManager::GetText(FileType type)
{
    static const char *const invalid = QT_TRANSLATE_NOOP("QObject", "Invalid file type");
    const bool known = type >= 0 && type < s_fileTypeCount;
    return Translations::translate(known ? s_fileTypes[type].text : invalid);
}

} // namespace Kavro
