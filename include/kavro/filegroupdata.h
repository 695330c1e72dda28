// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_FILEGROUPDATA_H
#define KAVRO_FILEGROUPDATA_H

#include <kavro/kavrotypes.h>

#include <QDateTime>
#include <QMetaType>
#include <QPair>
#include <QSharedDataPointer>
#include <QStringList>
#include <QVector>

QT_BEGIN_NAMESPACE
class QXmlStreamReader;
class QXmlStreamWriter;
QT_END_NAMESPACE

namespace Kavro
{

class FileGroupDataPrivate;

/*!
 * \brief The metadata record of one file group.
 *
 * A copyable value: identity, type, location, times, free texts, counters
 * and the group's numbered files. It has three forms besides itself:
 * the XML element form exchanged with the server (ToHtml(), FromHtml()),
 * a row of sixteen display texts (ToStringList(), GetHeaders(),
 * fromStringList()) and a description file beside exported data
 * (toXmlFileForExport(), fromXmlforImport()).
 *
 * Times are held as given; records read from XML carry UTC times, and the
 * XML form always writes UTC.
 *
 * \code
 * Kavro::FileGroupData group;
 * group.setName(QStringLiteral("survey"));
 * group.setFileType(Kavro::FileTypeImage);
 * group.addFile(QStringLiteral("north.png"), 1);
 * const QString written = group.toXmlFileForExport(exportDirectory); // "survey_<guid>.fgdesc"
 * \endcode
 */
class KAVRO_EXPORT FileGroupData
{
public:
    //! The group's files in insertion order: (file name, file id).
    using FileList = QVector<QPair<QString, quint32>>;

    //! How far FromHtml() reads.
    enum ReadExtent {
        ReadToEndOfDocument, //!< every group element of the document, up to its end
        ReadToEndOfGroup, //!< up to the end of the current or next "FileGroup" element
    };

    FileGroupData();
    FileGroupData(const FileGroupData &other);
    FileGroupData(FileGroupData &&other) noexcept;
    FileGroupData &operator=(const FileGroupData &other);
    FileGroupData &operator=(FileGroupData &&other) noexcept;
    ~FileGroupData();

    bool operator==(const FileGroupData &other) const;
    bool operator!=(const FileGroupData &other) const { return !(*this == other); }

    QString getGuid() const;
    void setGuid(const QString &guid);
    QString getName() const;
    void setName(const QString &name);
    FileType getFileType() const;
    void setFileType(FileType type);
    LocationState getLocationState() const;
    void setLocationState(LocationState state);
    QDateTime getBackupTime() const;
    void setBackupTime(const QDateTime &time);
    QDateTime getCreationTime() const;
    void setCreationTime(const QDateTime &time);
    QDateTime getModificationTime() const;
    void setModificationTime(const QDateTime &time);
    //! The end of the group's life cycle: a point in time.
    QDateTime getLifeCycle() const;
    void setLifeCycle(const QDateTime &time);
    QString getComment() const;
    void setComment(const QString &comment);
    QString getCreator() const;
    void setCreator(const QString &creator);
    QString getDetail() const;
    void setDetail(const QString &detail);
    //! The group's path; kept only in the record, never written to XML or to the list form.
    QString getPath() const;
    void setPath(const QString &path);
    QString getTeam() const;
    void setTeam(const QString &team);
    QString getVersion() const;
    void setVersion(const QString &version);
    //! Bytes reserved for the group; a negative value is not written to XML.
    qint64 getReservedStorage() const;
    void setReservedStorage(qint64 reservedStorage);
    int getReferenceCount() const;
    void setReferenceCount(int referenceCount);
    //! Shown in the list form only; not part of the XML form.
    int getLockCount() const;
    void setLockCount(int lockCount);

    //! Appends one file; names and ids are not tested for duplicates.
    void addFile(const QString &name, quint32 id);
    const FileList &getFileList() const;
    void setFileList(const FileList &files);

    //! Appends the sixteen column headers of the list form.
    static void GetHeaders(QStringList &headers);
    //! Appends the sixteen values of the list form, in the order of GetHeaders(); times in local time.
    void ToStringList(QStringList &values) const;
    //! The record of a list made by ToStringList(); unknown type or location texts leave their default.
    static FileGroupData fromStringList(const QStringList &values);

    /*!
     * Writes the XML element form: optionally inside "m:FileGroup", optionally
     * declaring the prefix "m" on the current element. Location state 0,
     * invalid times, empty texts and negative counters are left out.
     */
    void ToHtml(QXmlStreamWriter &writer, bool withGroupElement, bool withNamespace) const;
    /*!
     * Reads the XML element form. Returns NoError, ErrorReadXmlFile for an
     * out-of-range file type, location state or file id, an unexpected element of the
     * service namespace or a malformed document, or the code of an "Error"
     * element. What was read stays in the record whatever the result.
     */
    KavroError FromHtml(QXmlStreamReader &reader, ReadExtent extent = ReadToEndOfDocument);
    //! Writes the start of "m:FileGroup".
    void WriteStartElement(QXmlStreamWriter &writer) const;
    //! Writes the end of "m:FileGroup".
    void WriteEndElement(QXmlStreamWriter &writer) const;

    /*!
     * Writes the record as "<name>_<guid>.fgdesc" into \a directory, or, when
     * that exists, as the first free "<name>_<guid>_<n>.fgdesc" joined to the
     * directory without a separator. Returns the chosen file name, also when
     * the file could not be written (a warning is traced then).
     */
    QString toXmlFileForExport(const QString &directory) const;
    //! Reads a description file; true when it exists and was read without error.
    bool fromXmlforImport(const QString &path);

private:
    QSharedDataPointer<FileGroupDataPrivate> d;
};

} // namespace Kavro

Q_DECLARE_METATYPE(Kavro::FileGroupData)

#endif
