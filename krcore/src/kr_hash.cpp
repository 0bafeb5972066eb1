// kr_hash.cpp — (placeholder)
