// SPDX-FileCopyrightText: 2026 Kavro developers
// SPDX-License-Identifier: MIT
#ifndef KAVRO_KAVROTYPES_H
#define KAVRO_KAVROTYPES_H

#include <kavro/kavro_export.h>

#include <QMetaType>
#include <QString>
#include <QtGlobal>

/*!
 * \file kavrotypes.h
 * \brief The enumerations shared by the whole library.
 *
 * Their numeric values are part of the wire protocol and of stored records;
 * a value outside an enumeration's list is still carried as it is.
 */

namespace Kavro
{

//! \brief What kind of data a file group holds.
enum FileType : qint32 {
    FileTypeUnknown = 0,
    FileTypeTransmissionSystemXml = 1,
    FileTypeTransmissionSystemText = 2,
    FileTypeTransmissionSystemBinary = 3,
    FileTypeTransmissionSystemZ2Xml = 4,
    FileTypeDecodedTextXml = 5,
    FileTypeDecodedTextText = 6,
    FileTypeDecodedTextZ2Xml = 7,
    FileTypeScanRecording = 8,
    FileTypeIfRecording = 9,
    FileTypeAudioRecording = 10,
    FileTypeImage = 11,
    FileTypeMissionPlanningTool = 12,
    FileTypeCommunicationNetworkDiagram = 13,
    FileTypeReportReferences = 14,
    FileTypeOrdanResults = 15,
    FileTypePck = 16, //!< valid, but never offered in FileTypeManager's list
    FileTypeRad = 17,
    FileTypeReportFragment = 18,
    FileTypeRovecIqRecording = 19,
    FileTypeTechnicalParameters = 20,
};

//! \brief Where a file group's data lies.
enum LocationState : qint32 {
    LocationUndefined = 0,
    LocationLocal = 1,
    LocationCentral = 2,
    LocationBackupCopy = 3,
    LocationCentralNotMoved = 4,
    LocationRemote = 5,
    LocationDeleted = 6,
    LocationRovec = 7,
    LocationToBeMovedFromRovec = 8,
    LocationCentralNotConverted = 9,
    LocationRemoteNotYetFound = 10,
    LocationRemoteNotYetCentral = 11,
    LocationRemoteOnRovec = 12,
    LocationUnknownFileGroup = 13,
};

//! \brief How a file is locked.
enum LockState : qint32 {
    LockUndefined = 0,
    LockFree = 1,
    LockRead = 2,
    LockWrite = 3,
};

//! \brief The result code of every client operation and of every server reply.
enum KavroError : qint32 {
    NoError = 0,
    ErrorUnknown = 1,
    ErrorGuidNotFound = 2,
    ErrorFileGroupIdNotFound = 3,
    ErrorNotEnoughStorage = 4,
    ErrorFileGroupWriteLocked = 5,
    ErrorFileGroupLocked = 6,
    ErrorOpenFile = 7,
    ErrorCloseFile = 8,
    ErrorNoReadPermission = 9,
    ErrorReadFile = 10,
    ErrorNoWritePermission = 11,
    ErrorWriteFile = 12,
    ErrorMoveFileGroup = 13,
    ErrorDeleteFileGroup = 14,
    ErrorDeleteFile = 15,
    ErrorBackupFileGroup = 16,
    ErrorImportFileGroup = 17,
    ErrorImportFileGroupIncomplete = 18,
    ErrorQueryFiles = 19,
    ErrorSearchText = 20,
    ErrorAddLock = 21,
    ErrorDeleteLock = 22,
    ErrorInsertLockInDb = 23,
    ErrorDeleteLockFromDb = 24,
    ErrorReadLockFromDb = 25,
    ErrorAddFile = 26,
    ErrorRemoveFile = 27, //!< same text as ErrorDeleteFile, distinct code
    ErrorInsertFileInDb = 28,
    ErrorDeleteFileFromDb = 29,
    ErrorReadFileFromDb = 30,
    ErrorAddReference = 31,
    ErrorDeleteReference = 32,
    ErrorInsertReferenceInDb = 33,
    ErrorDeleteReferenceFromDb = 34,
    ErrorReadReferenceFromDb = 35,
    ErrorAddFileGroup = 36,
    ErrorInsertFileGroupInDb = 37,
    ErrorDeleteFileGroupFromDb = 38,
    ErrorUpdateFileGroupInDb = 39,
    ErrorReadFileGroupFromDb = 40,
    ErrorUnknownReplyCommand = 41,
    ErrorReplyCommandMismatch = 42,
    ErrorNotConnected = 43,
    ErrorReplyTimeout = 44,
    ErrorTransferFileGroup = 45,
    ErrorTransferFileGroupIncomplete = 46,
    ErrorDatabaseUnavailable = 47,
    ErrorCreatePath = 48,
    ErrorTransferFileGroupLocally = 49,
    ErrorImportArchive = 50,
    ErrorImportArchiveIncomplete = 51,
    ErrorExportArchive = 52,
    ErrorWriteXmlFile = 53,
    ErrorReadXmlFile = 54,
    ErrorFileGroupNotUpdated = 55,
    ErrorCommunication = 56,
    ErrorSoapParsing = 57,
    ErrorSoapMissingTag = 58, //!< its text ends in ": " so the tag's name can follow
    ErrorRemoteCopyInProgress = 59,
    ErrorAlreadyAsked = 60,
    ErrorRemoteNotFoundYet = 61,
    ErrorFileGroupDeleted = 62,
    ErrorNotReadyForTransfer = 63,
    ErrorOnUnreachableRovec = 64,
    ErrorNoCopyRequested = 65,
    ErrorNotConverted = 66,
    ErrorNotCentral = 67,
    ErrorServerBusy = 68,
    //! The library's own, never sent by a server: the application aborted the request (KavroReply::abort()).
    ErrorAborted = 1000,
};

/*!
 * \brief The display text of a lock state, translated when a catalogue is installed.
 *
 * A value outside LockState gives "Invalid lock state".
 */
KAVRO_EXPORT QString GetLockStateText(LockState state);

} // namespace Kavro

Q_DECLARE_METATYPE(Kavro::FileType)

#endif
