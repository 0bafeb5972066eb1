// kr_vartext.cpp — (placeholder)
