// kr_xmlsettings.cpp — (placeholder)
