#pragma once

// The script functions as the library exports them. Each takes one argument block, a record whose first entry under a
// string key is the record of parameters; inputs are read from there, and results, "_RETV" first of all, are left there.
// A null block, an empty one and a first entry that is no record are survived without effect. Nothing is thrown; calls may
// run on any number of threads as long as each has its own block. What the parameters mean stands in one table:
// yinet/script/function_table.h.

#include "yinet/host/export.h"

class YObject;

extern "C" {

// FTP with or without TLS
YINET_API void FTPS_DOWNLOADDATEI(YObject* arguments);
YINET_API void FTPS_UPLOAD(YObject* arguments);
YINET_API void FTPS_LOESCHE(YObject* arguments);

// FTP with or without TLS, through libcurl
YINET_API void FTP_UPLOAD(YObject* arguments);
YINET_API void FTP_DOWNLOADDATEI(YObject* arguments);
YINET_API void FTP_DOWNLOADDATEIEN(YObject* arguments);
YINET_API void FTP_DOWNLOADDATEIENMITLOESCHEN(YObject* arguments);
YINET_API void FTP_LOESCHE(YObject* arguments);
YINET_API void FTP_BEENDE(YObject* arguments);

// HTTP
YINET_API void HTTP_GET(YObject* arguments);
YINET_API void HTTP_POST(YObject* arguments);

// What a URL leads to
YINET_API void INTERNET_DOWNLOAD(YObject* arguments);
YINET_API void INTERNET_LESEDATEI(YObject* arguments);
YINET_API void INTERNET_WEBSUCHE(YObject* arguments);

// SOAP
YINET_API void SOAP_EXECUTEFUNCTION(YObject* arguments);

// Mail
YINET_API void MIME_DEKODIERE(YObject* arguments);

// File transfer through libcurl
YINET_API void YINETFILETRANSFER_DOWNLOAD_DATEI(YObject* arguments);
YINET_API void YINETFILETRANSFER_DOWNLOAD_TEXT(YObject* arguments);
YINET_API void YINETFILETRANSFER_UPLOAD_DATEI(YObject* arguments);
YINET_API void YINETFILETRANSFER_UPLOAD_TEXT(YObject* arguments);
YINET_API void YINETFILETRANSFER_ERSTELLE_VERZEICHNIS(YObject* arguments);
YINET_API void YINETFILETRANSFER_EXISTIERT_VERZEICHNIS(YObject* arguments);
YINET_API void YINETFILETRANSFER_LOESCHE_DATEI(YObject* arguments);
YINET_API void YINETFILETRANSFER_LOESCHE_VERZEICHNIS(YObject* arguments);

// SFTP
YINET_API void SSH_UPLOAD(YObject* arguments);
YINET_API void SSH_DOWNLOAD(YObject* arguments);
YINET_API void SSH_DELETE(YObject* arguments);
YINET_API void SSH_CREATEDIRECTORY(YObject* arguments);
YINET_API void SSH_REMOVEDIRECTORY(YObject* arguments);
YINET_API void SSH_GETDIRECTORY(YObject* arguments);

// TLS start-up: prepares the TLS library for several threads. Works with any block, null included, and sets nothing.
YINET_API void SECURESOCKETGLOBALSSLINIT(YObject* arguments);

}  // extern "C"
