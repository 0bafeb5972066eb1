// kr_var.cpp — (placeholder)
