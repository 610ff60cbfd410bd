// Up to 0.9.0 none of its includes defines it: the program must do so.
#if !defined(SIGNED_RIGHT_SHIFT_IS) || !defined(ARITHMETIC_RIGHT_SHIFT)
#error "Unable to determine the behavior of a signed right shift"
#endif
