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

// Values
#include <vellument/AuditUtil.h>
#include <vellument/DateTime.h>

// Toolkit
#include <vellument/XString.h>
#include <vellument/CkByteData.h>
#include <vellument/CkCrypt2.h>
#include <vellument/CkString.h>
#include <vellument/CkStringBuilder.h>

#endif
