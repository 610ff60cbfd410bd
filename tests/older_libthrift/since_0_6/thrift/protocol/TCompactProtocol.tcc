// Up to 0.9.0 nothing that it includes says so: a program must.
#if !defined(SIGNED_RIGHT_SHIFT_IS) || !defined(ARITHMETIC_RIGHT_SHIFT)
#error "Unable to determine the behavior of a signed right shift"
#endif
