// kr_varconv.cpp — (placeholder)
