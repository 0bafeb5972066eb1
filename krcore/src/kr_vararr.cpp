// kr_vararr.cpp — (placeholder)
