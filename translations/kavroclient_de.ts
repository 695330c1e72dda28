<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>QObject</name>
    <message>
        <source>Unknown</source>
        <translation>Unbekannt</translation>
    </message>
    <message>
        <source>Transmission System (XML)</source>
        <translation>Übertragungssystem (XML)</translation>
    </message>
    <message>
        <source>Transmission System (Text)</source>
        <translation>Übertragungssystem (Text)</translation>
    </message>
    <message>
        <source>Transmission System (Binary)</source>
        <translation>Übertragungssystem (binär)</translation>
    </message>
    <message>
        <source>Transmission System (Z2 XML)</source>
        <translation>Übertragungssystem (Z2-XML)</translation>
    </message>
    <message>
        <source>Decoded Text (XML)</source>
        <translation>Dekodierter Text (XML)</translation>
    </message>
    <message>
        <source>Decoded Text (Text)</source>
        <translation>Dekodierter Text (Text)</translation>
    </message>
    <message>
        <source>Decoded Text (Z2 XML)</source>
        <translation>Dekodierter Text (Z2-XML)</translation>
    </message>
    <message>
        <source>Scan Recording</source>
        <translation>Suchlaufaufzeichnung</translation>
    </message>
    <message>
        <source>IF Recording</source>
        <translation>ZF-Aufzeichnung</translation>
    </message>
    <message>
        <source>Audio Recording</source>
        <translation>Audioaufzeichnung</translation>
    </message>
    <message>
        <source>Image</source>
        <translation>Bild</translation>
    </message>
    <message>
        <source>Propagation Calculation Tool</source>
        <translation>Ausbreitungsberechnung</translation>
    </message>
    <message>
        <source>Communication Network Diagram</source>
        <translation>Kommunikationsnetzdiagramm</translation>
    </message>
    <message>
        <source>Report File Reference List</source>
        <translation>Referenzliste der Berichtsdateien</translation>
    </message>
    <message>
        <source>Ordan Results</source>
        <translation>Ordan-Ergebnisse</translation>
    </message>
    <message>
        <source>PCK File</source>
        <translation>PCK-Datei</translation>
    </message>
    <message>
        <source>RAD File</source>
        <translation>RAD-Datei</translation>
    </message>
    <message>
        <source>Report Fragment</source>
        <translation>Berichtsfragment</translation>
    </message>
    <message>
        <source>Rovec IQ recording</source>
        <translation>Rovec-IQ-Aufzeichnung</translation>
    </message>
    <message>
        <source>Technical Parameters</source>
        <translation>Technische Parameter</translation>
    </message>
    <message>
        <source>Invalid file type</source>
        <translation>Ungültiger Dateityp</translation>
    </message>
    <message>
        <source>No error</source>
        <translation>Kein Fehler</translation>
    </message>
    <message>
        <source>Unknown error</source>
        <translation>Unbekannter Fehler</translation>
    </message>
    <message>
        <source>Guid not found</source>
        <translation>GUID nicht gefunden</translation>
    </message>
    <message>
        <source>File group Id not found</source>
        <translation>Dateigruppen-ID nicht gefunden</translation>
    </message>
    <message>
        <source>Not enough storage available</source>
        <translation>Nicht genügend Speicher verfügbar</translation>
    </message>
    <message>
        <source>File group is write locked</source>
        <translation>Dateigruppe ist schreibgesperrt</translation>
    </message>
    <message>
        <source>File group is locked</source>
        <translation>Dateigruppe ist gesperrt</translation>
    </message>
    <message>
        <source>Failed to open file</source>
        <translation>Datei konnte nicht geöffnet werden</translation>
    </message>
    <message>
        <source>Error closing file</source>
        <translation>Fehler beim Schließen der Datei</translation>
    </message>
    <message>
        <source>No read permission</source>
        <translation>Keine Leseberechtigung</translation>
    </message>
    <message>
        <source>Error reading file</source>
        <translation>Fehler beim Lesen der Datei</translation>
    </message>
    <message>
        <source>No write permission</source>
        <translation>Keine Schreibberechtigung</translation>
    </message>
    <message>
        <source>Error writing file</source>
        <translation>Fehler beim Schreiben der Datei</translation>
    </message>
    <message>
        <source>Failed to move file group</source>
        <translation>Dateigruppe konnte nicht verschoben werden</translation>
    </message>
    <message>
        <source>Failed to delete file group</source>
        <translation>Dateigruppe konnte nicht gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to delete file</source>
        <translation>Datei konnte nicht gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to backup file group</source>
        <translation>Dateigruppe konnte nicht gesichert werden</translation>
    </message>
    <message>
        <source>Failed to import file group</source>
        <translation>Dateigruppe konnte nicht importiert werden</translation>
    </message>
    <message>
        <source>Import of file group could not be completed</source>
        <translation>Import der Dateigruppe konnte nicht abgeschlossen werden</translation>
    </message>
    <message>
        <source>Error while querying files</source>
        <translation>Fehler bei der Dateiabfrage</translation>
    </message>
    <message>
        <source>Error while searching text</source>
        <translation>Fehler bei der Textsuche</translation>
    </message>
    <message>
        <source>Failed to add lock</source>
        <translation>Sperre konnte nicht gesetzt werden</translation>
    </message>
    <message>
        <source>Failed to delete lock</source>
        <translation>Sperre konnte nicht aufgehoben werden</translation>
    </message>
    <message>
        <source>Failed to insert lock in DB</source>
        <translation>Sperre konnte nicht in die DB eingetragen werden</translation>
    </message>
    <message>
        <source>Failed to delete lock from DB</source>
        <translation>Sperre konnte nicht aus der DB gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to read lock from DB</source>
        <translation>Sperre konnte nicht aus der DB gelesen werden</translation>
    </message>
    <message>
        <source>Failed to add file</source>
        <translation>Datei konnte nicht hinzugefügt werden</translation>
    </message>
    <message>
        <source>Failed to insert file in DB</source>
        <translation>Datei konnte nicht in die DB eingetragen werden</translation>
    </message>
    <message>
        <source>Failed to delete file from DB</source>
        <translation>Datei konnte nicht aus der DB gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to read file from DB</source>
        <translation>Datei konnte nicht aus der DB gelesen werden</translation>
    </message>
    <message>
        <source>Failed to add reference</source>
        <translation>Referenz konnte nicht hinzugefügt werden</translation>
    </message>
    <message>
        <source>Failed to delete reference</source>
        <translation>Referenz konnte nicht gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to insert reference in DB</source>
        <translation>Referenz konnte nicht in die DB eingetragen werden</translation>
    </message>
    <message>
        <source>Failed to delete reference from DB</source>
        <translation>Referenz konnte nicht aus der DB gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to read reference from DB</source>
        <translation>Referenz konnte nicht aus der DB gelesen werden</translation>
    </message>
    <message>
        <source>Failed to add file group</source>
        <translation>Dateigruppe konnte nicht hinzugefügt werden</translation>
    </message>
    <message>
        <source>Failed to insert file group in DB</source>
        <translation>Dateigruppe konnte nicht in die DB eingetragen werden</translation>
    </message>
    <message>
        <source>Failed to delete file group from DB</source>
        <translation>Dateigruppe konnte nicht aus der DB gelöscht werden</translation>
    </message>
    <message>
        <source>Failed to update file group in DB</source>
        <translation>Dateigruppe konnte in der DB nicht aktualisiert werden</translation>
    </message>
    <message>
        <source>Failed to read file group from DB</source>
        <translation>Dateigruppe konnte nicht aus der DB gelesen werden</translation>
    </message>
    <message>
        <source>The replied command code is not known</source>
        <translation>Der Befehlscode der Antwort ist unbekannt</translation>
    </message>
    <message>
        <source>The replied command code doesn&apos;t match the sent command</source>
        <translation>Der Befehlscode der Antwort passt nicht zum gesendeten Befehl</translation>
    </message>
    <message>
        <source>Client is not connected to server</source>
        <translation>Client ist nicht mit dem Server verbunden</translation>
    </message>
    <message>
        <source>Server reply timed out</source>
        <translation>Zeitüberschreitung bei der Serverantwort</translation>
    </message>
    <message>
        <source>Failed to transfer file group</source>
        <translation>Dateigruppe konnte nicht übertragen werden</translation>
    </message>
    <message>
        <source>Transfer of file group could not be completed</source>
        <translation>Übertragung der Dateigruppe konnte nicht abgeschlossen werden</translation>
    </message>
    <message>
        <source>The database is not available</source>
        <translation>Die Datenbank ist nicht verfügbar</translation>
    </message>
    <message>
        <source>Failed to create path</source>
        <translation>Pfad konnte nicht angelegt werden</translation>
    </message>
    <message>
        <source>Failed to transfer file group locally</source>
        <translation>Dateigruppe konnte nicht lokal übertragen werden</translation>
    </message>
    <message>
        <source>Failed to import archive</source>
        <translation>Archiv konnte nicht importiert werden</translation>
    </message>
    <message>
        <source>Import of archive could not be completed</source>
        <translation>Import des Archivs konnte nicht abgeschlossen werden</translation>
    </message>
    <message>
        <source>Failed to export to archive</source>
        <translation>Export in das Archiv fehlgeschlagen</translation>
    </message>
    <message>
        <source>Failed to write XML file</source>
        <translation>XML-Datei konnte nicht geschrieben werden</translation>
    </message>
    <message>
        <source>Failed to read XML file</source>
        <translation>XML-Datei konnte nicht gelesen werden</translation>
    </message>
    <message>
        <source>File group not updated</source>
        <translation>Dateigruppe nicht aktualisiert</translation>
    </message>
    <message>
        <source>Communication with server failed</source>
        <translation>Kommunikation mit dem Server fehlgeschlagen</translation>
    </message>
    <message>
        <source>Parsing error of Soap Message</source>
        <translation>Fehler beim Lesen der SOAP-Nachricht</translation>
    </message>
    <message>
        <source>Soap Message missing tag: </source>
        <translation>SOAP-Nachricht ohne Element: </translation>
    </message>
    <message>
        <source>Copying of file group data from remote server still in progress. </source>
        <translation>Die Daten der Dateigruppe werden noch vom entfernten Server kopiert. </translation>
    </message>
    <message>
        <source>The server has already been asked about this file group. </source>
        <translation>Der Server wurde zu dieser Dateigruppe bereits angefragt. </translation>
    </message>
    <message>
        <source>The file group may be remote, but has not been found yet. </source>
        <translation>Die Dateigruppe liegt möglicherweise entfernt, wurde aber noch nicht gefunden. </translation>
    </message>
    <message>
        <source>The file group has been deleted. </source>
        <translation>Die Dateigruppe wurde gelöscht. </translation>
    </message>
    <message>
        <source>The file group has been found, but is not yet ready to be transfered . </source>
        <translation>Die Dateigruppe wurde gefunden, ist aber noch nicht zur Übertragung bereit. </translation>
    </message>
    <message>
        <source>The file group has been found, but is on an unreachable RoVec device. </source>
        <translation>Die Dateigruppe wurde gefunden, liegt aber auf einem nicht erreichbaren RoVec-Gerät. </translation>
    </message>
    <message>
        <source>The file group has been found, but no copy was requested. </source>
        <translation>Die Dateigruppe wurde gefunden, aber es wurde keine Kopie angefordert. </translation>
    </message>
    <message>
        <source>The file group is not converted yet.</source>
        <translation>Die Dateigruppe ist noch nicht konvertiert.</translation>
    </message>
    <message>
        <source>The file group is not central.</source>
        <translation>Die Dateigruppe liegt nicht zentral.</translation>
    </message>
    <message>
        <source>Server is busy. Please try again later.</source>
        <translation>Der Server ist ausgelastet. Bitte später erneut versuchen.</translation>
    </message>
    <message>
        <source>Invalid error code</source>
        <translation>Ungültiger Fehlercode</translation>
    </message>
    <message>
        <source>Undefined</source>
        <translation>Undefiniert</translation>
    </message>
    <message>
        <source>Free</source>
        <translation>Frei</translation>
    </message>
    <message>
        <source>Read</source>
        <translation>Lesen</translation>
    </message>
    <message>
        <source>Write</source>
        <translation>Schreiben</translation>
    </message>
    <message>
        <source>Invalid lock state</source>
        <translation>Ungültiger Sperrzustand</translation>
    </message>
    <message>
        <source>Local</source>
        <translation>Lokal</translation>
    </message>
    <message>
        <source>Central</source>
        <translation>Zentral</translation>
    </message>
    <message>
        <source>Backup copy</source>
        <translation>Sicherungskopie</translation>
    </message>
    <message>
        <source>Central not moved</source>
        <translation>Zentral, nicht verschoben</translation>
    </message>
    <message>
        <source>Remote location</source>
        <translation>Entfernter Standort</translation>
    </message>
    <message>
        <source>Deleted</source>
        <translation>Gelöscht</translation>
    </message>
    <message>
        <source>Rovec</source>
        <translation>Rovec</translation>
    </message>
    <message>
        <source>To be moved from Rovec</source>
        <translation>Von Rovec zu verschieben</translation>
    </message>
    <message>
        <source>Central not converted</source>
        <translation>Zentral, nicht konvertiert</translation>
    </message>
    <message>
        <source>Remote not yet found</source>
        <translation>Entfernt, noch nicht gefunden</translation>
    </message>
    <message>
        <source>Remote not yet central</source>
        <translation>Entfernt, noch nicht zentral</translation>
    </message>
    <message>
        <source>Remote but on Rovec</source>
        <translation>Entfernt, aber auf Rovec</translation>
    </message>
    <message>
        <source>Unknown file group</source>
        <translation>Unbekannte Dateigruppe</translation>
    </message>
    <message>
        <source>Invalid location state</source>
        <translation>Ungültiger Standortzustand</translation>
    </message>
    <message>
        <source>File group name</source>
        <translation>Name der Dateigruppe</translation>
    </message>
    <message>
        <source>File type</source>
        <translation>Dateityp</translation>
    </message>
    <message>
        <source>Location state</source>
        <translation>Standortzustand</translation>
    </message>
    <message>
        <source>Backup time</source>
        <translation>Sicherungszeit</translation>
    </message>
    <message>
        <source>Creation time</source>
        <translation>Erstellungszeit</translation>
    </message>
    <message>
        <source>Modification time</source>
        <translation>Änderungszeit</translation>
    </message>
    <message>
        <source>Life cycle</source>
        <translation>Lebensdauer</translation>
    </message>
    <message>
        <source>Comment</source>
        <translation>Kommentar</translation>
    </message>
    <message>
        <source>Creator</source>
        <translation>Ersteller</translation>
    </message>
    <message>
        <source>Detail</source>
        <translation>Detail</translation>
    </message>
    <message>
        <source>Team</source>
        <translation>Team</translation>
    </message>
    <message>
        <source>Version</source>
        <translation>Version</translation>
    </message>
    <message>
        <source>Reserved storage</source>
        <translation>Reservierter Speicher</translation>
    </message>
    <message>
        <source>Reference count</source>
        <translation>Anzahl Referenzen</translation>
    </message>
    <message>
        <source>Lock count</source>
        <translation>Anzahl Sperren</translation>
    </message>
    <message>
        <source>Guid</source>
        <translation>GUID</translation>
    </message>
    <message>
        <source>Expected element %1, but got %2</source>
        <translation>Element %1 erwartet, aber %2 gefunden</translation>
    </message>
    <message>
        <source>Expected one of %1, but got %2</source>
        <translation>Eines von %1 erwartet, aber %2 gefunden</translation>
    </message>
    <message>
        <source>Expected element %1, but got end of document</source>
        <translation>Element %1 erwartet, aber Dokumentende erreicht</translation>
    </message>
    <message>
        <source>Expected one of %1, but got end of document</source>
        <translation>Eines von %1 erwartet, aber Dokumentende erreicht</translation>
    </message>
    <message>
        <source>Unexpected text %1</source>
        <translation>Unerwarteter Text %1</translation>
    </message>
    <message>
        <source>Expected a number, but got %1</source>
        <translation>Zahl erwartet, aber %1 erhalten</translation>
    </message>
    <message>
        <source>Expected namespace %1, but got %2</source>
        <translation>Namensraum %1 erwartet, aber %2 gefunden</translation>
    </message>
    <message>
        <source>at line %1, column %2</source>
        <translation>in Zeile %1, Spalte %2</translation>
    </message>
</context>
<context>
    <name>Kavro::ClientTreeModel</name>
    <message>
        <source>Location</source>
        <translation>Ablageort</translation>
    </message>
</context>
<context>
    <name>Kavro::FileGroupSortModel</name>
    <message>
        <source>count</source>
        <translation>Anzahl</translation>
    </message>
    <message>
        <source>storage</source>
        <translation>Speicher</translation>
    </message>
</context>
<context>
    <name>Kavro::FileSelectDialog</name>
    <message>
        <source>Text in any column</source>
        <translation>Text in einer beliebigen Spalte</translation>
    </message>
    <message>
        <source>&amp;Filter:</source>
        <translation>&amp;Filter:</translation>
    </message>
    <message>
        <source>&amp;Query...</source>
        <translation>&amp;Abfrage...</translation>
    </message>
    <message>
        <source>&amp;Refresh</source>
        <translation>A&amp;ktualisieren</translation>
    </message>
    <message>
        <source>The files of %1 could not be loaded: %2</source>
        <translation>Die Dateien von %1 konnten nicht geladen werden: %2</translation>
    </message>
    <message>
        <source>Groups found: %1</source>
        <translation>Gefundene Gruppen: %1</translation>
    </message>
    <message>
        <source>Choose an Archived File</source>
        <translation>Archivierte Datei wählen</translation>
    </message>
    <message>
        <source>No archive client was given.</source>
        <translation>Es wurde kein Archiv-Client angegeben.</translation>
    </message>
    <message>
        <source>Searching...</source>
        <translation>Suche läuft...</translation>
    </message>
    <message>
        <source>The search failed: %1</source>
        <translation>Die Suche ist fehlgeschlagen: %1</translation>
    </message>
</context>
<context>
    <name>Kavro::KavroClient</name>
    <message>
        <source>Ok</source>
        <translation>Ok</translation>
    </message>
</context>
<context>
    <name>Kavro::KavroFileDialog</name>
    <message>
        <source>Open</source>
        <translation>Öffnen</translation>
    </message>
</context>
<context>
    <name>Kavro::KavroSaveAsDlg</name>
    <message>
        <source>Could not save the file: %1</source>
        <translation>Die Datei konnte nicht gespeichert werden: %1</translation>
    </message>
    <message>
        <source>&amp;Browse...</source>
        <translation>Du&amp;rchsuchen...</translation>
    </message>
    <message>
        <source> days</source>
        <translation> Tage</translation>
    </message>
    <message>
        <source>&amp;File:</source>
        <translation>&amp;Datei:</translation>
    </message>
    <message>
        <source>&amp;Name:</source>
        <translation>&amp;Name:</translation>
    </message>
    <message>
        <source>File &amp;type:</source>
        <translation>Datei&amp;typ:</translation>
    </message>
    <message>
        <source>&amp;Version:</source>
        <translation>&amp;Version:</translation>
    </message>
    <message>
        <source>&amp;Life cycle:</source>
        <translation>&amp;Lebensdauer:</translation>
    </message>
    <message>
        <source>&amp;Detail:</source>
        <translation>D&amp;etail:</translation>
    </message>
    <message>
        <source>&amp;Comment:</source>
        <translation>&amp;Kommentar:</translation>
    </message>
    <message>
        <source>Save to Archive</source>
        <translation>Im Archiv speichern</translation>
    </message>
    <message>
        <source>Choose a File to Archive</source>
        <translation>Zu archivierende Datei wählen</translation>
    </message>
    <message>
        <source>The name must not contain "/" or "\".</source>
        <translation>Der Name darf weder „/“ noch „\“ enthalten.</translation>
    </message>
</context>
<context>
    <name>Kavro::QueryDialog</name>
    <message>
        <source>&amp;Name:</source>
        <translation>&amp;Name:</translation>
    </message>
    <message>
        <source>&amp;Comment:</source>
        <translation>&amp;Kommentar:</translation>
    </message>
    <message>
        <source>&amp;Detail:</source>
        <translation>&amp;Detail:</translation>
    </message>
    <message>
        <source>&amp;Version:</source>
        <translation>&amp;Version:</translation>
    </message>
    <message>
        <source>C&amp;reator:</source>
        <translation>&amp;Ersteller:</translation>
    </message>
    <message>
        <source>&amp;Team:</source>
        <translation>&amp;Team:</translation>
    </message>
    <message>
        <source>&amp;Locked by:</source>
        <translation>Ge&amp;sperrt von:</translation>
    </message>
    <message>
        <source>Referenced by &amp;application:</source>
        <translation>Referenziert von &amp;Anwendung:</translation>
    </message>
    <message>
        <source>Created</source>
        <translation>Erstellt</translation>
    </message>
    <message>
        <source>Modified</source>
        <translation>Geändert</translation>
    </message>
    <message>
        <source>Backed up</source>
        <translation>Gesichert</translation>
    </message>
    <message>
        <source>Life cycle ends</source>
        <translation>Lebensdauer endet</translation>
    </message>
    <message>
        <source>File &amp;types:</source>
        <translation>Datei&amp;typen:</translation>
    </message>
    <message>
        <source>Any</source>
        <translation>Beliebig</translation>
    </message>
    <message>
        <source>&amp;Location:</source>
        <translation>&amp;Speicherort:</translation>
    </message>
    <message>
        <source>Loc&amp;k state:</source>
        <translation>Sperr&amp;zustand:</translation>
    </message>
    <message>
        <source>Times in UTC</source>
        <translation>Zeiten in UTC</translation>
    </message>
    <message>
        <source>Times in local time</source>
        <translation>Zeiten in Ortszeit</translation>
    </message>
    <message>
        <source>From</source>
        <translation>Von</translation>
    </message>
    <message>
        <source>To</source>
        <translation>Bis</translation>
    </message>
    <message>
        <source>%1 from</source>
        <translation>%1 von</translation>
    </message>
    <message>
        <source>%1 to</source>
        <translation>%1 bis</translation>
    </message>
    <message>
        <source>Search Criteria</source>
        <translation>Suchkriterien</translation>
    </message>
    <message>
        <source>Te&amp;xts</source>
        <translation>Te&amp;xte</translation>
    </message>
    <message>
        <source>T&amp;ypes and states</source>
        <translation>T&amp;ypen und Zustände</translation>
    </message>
    <message>
        <source>Ti&amp;mes</source>
        <translation>Zeite&amp;n</translation>
    </message>
</context>
</TS>
