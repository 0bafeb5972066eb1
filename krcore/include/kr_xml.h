// kr_xml.h — the tag reader: values between an opening and a closing tag on a text file.
// Every text persistence of the library writes "<tag>value</tag>" lines and reads them back
// through these functions. The notation is deliberately minimal: no attributes, no nesting
// rules, no entities, no white-space normalisation; the file is read a character at a time.
#ifndef KRCORE_KR_XML_H
#define KRCORE_KR_XML_H

#include "kr_file.h"
#include "kr_reporter.h"
#include "kr_str.h"

// Tags are kept with their brackets ("<version>", "</version>"). An opening tag is valid when
// it has at least 3 characters, starts with "<" and ends with ">"; a closing tag needs at least 4
// and "/" as its second character. Every function empties its outputs first. A scan failure of
// the file (a status above 2) ends the read at once, leaves the outputs empty and is returned
// unchanged.

// Skips everything up to the next "<" and reads the tag up to and including the next ">".
// KR_RET_FALSE with an empty tag when the file ends first, when the text read is not a valid
// opening tag (the characters read stay consumed), or when expected is given and differs
// (exact, case-sensitive).
KR_API KR_RET_STATUS KR_xmlReadTag(KR_String& tag, KR_FileAscii& file, const char* expected);
// The same with the closing-tag rule.
KR_API KR_RET_STATUS KR_xmlReadEndTag(KR_String& tag, KR_FileAscii& file, const char* expected);
// Reads the text up to the next "<", which is left for the next tag read: the file is
// positioned back to where the "<" begins. Line ends and blanks are kept as they stand. Content
// that runs to the end of the file is returned with KR_RET_TRUE, as is the empty content of a
// file already at its end. The wide form converts the locale's multibyte text as
// KR_FileAscii::scanCharW does.
KR_API KR_RET_STATUS KR_xmlReadTagContent(KR_String& content, KR_FileAscii& file);
KR_API KR_RET_STATUS KR_xmlReadTagContentW(KR_StringW& content, KR_FileAscii& file);
// Reads an opening tag (checked against startTag unless it is null), the content, and a closing
// tag (checked against endTag unless it is null). KR_RET_TRUE only when all three succeed;
// otherwise content is empty and the first status other than KR_RET_TRUE is returned (so an
// entry without its closing tag gives KR_RET_FALSE).
KR_API KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content,
                                        KR_FileAscii& file,
                                        const char* startTag,
                                        const char* endTag);
KR_API KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content,
                                         KR_FileAscii& file,
                                         const char* startTag,
                                         const char* endTag);
// Reads the next entry whatever its tag and gives the opening tag back in tag. The closing tag
// must be the one of that opening tag ("</a>" for "<a>"), else KR_RET_FALSE. On any failure
// both tag and content are empty.
KR_API KR_RET_STATUS KR_xmlReadTagEntry(KR_String& content, KR_String& tag, KR_FileAscii& file);
KR_API KR_RET_STATUS KR_xmlReadTagEntryW(KR_StringW& content, KR_String& tag, KR_FileAscii& file);

#endif  // KRCORE_KR_XML_H
