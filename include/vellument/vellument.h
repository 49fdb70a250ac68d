#ifndef VELLUMENT_VELLUMENT_H
#define VELLUMENT_VELLUMENT_H

// The whole exported interface of the vellument library.

#include <vellument/export.h>

// Platform layer
#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

// Values, enumerations and tables
#include <vellument/AuditUtil.h>
#include <vellument/DateTime.h>
#include <vellument/VellumentTypes.h>
#include <vellument/attributeDic.h>
#include <vellument/FormCodes.h>
#include <vellument/CPathHandling.h>

// Records
#include <vellument/CFormBase.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CFilingBase.h>
#include <vellument/CFiling.h>
#include <vellument/CCopy.h>
#include <vellument/CStatusBase.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CDictionary.h>
#include <vellument/CTransaction.h>

// The vellument
#include <vellument/CVellument.h>
#include <vellument/LocalList.h>
#include <vellument/ServerFunctions.h>

// The SQL mirror
#include <vellument/Ostrel_Database.h>
#include <vellument/CvellumentDB.h>

// Task lists
#include <vellument/CViewerTaskList.h>
#include <vellument/TaskListFunctions.h>

// Toolkit
#include <vellument/XString.h>
#include <vellument/CkByteData.h>
#include <vellument/CkCrypt2.h>
#include <vellument/CkString.h>
#include <vellument/CkStringBuilder.h>
#include <vellument/CkXml.h>
#include <vellument/CkHttp.h>
#include <vellument/CkHttpResponse.h>

// The web service client
#include <vellument/eFileSOAPS.h>

#endif
