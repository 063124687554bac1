! Records fixed-width fields. Each input line holds the bits of a real64; for each format one line is written: bits,
! format, and the field between brackets.
!   gfortran record_fixed_fields.f90 -o /tmp/record && /tmp/record <fixed_field_values.txt >fixed_field_recorded.txt
program recordFixedFields
  use iso_fortran_env
  implicit none
  character(len=8), parameter :: formats(14) = [character(len=8) :: 'F10.2', 'F12.2', 'F10.3', 'F12.6', 'F8.2', 'F4.3', 'F5.3', &
                                                'F9.0', 'F20.9', 'E14.6', 'E12.6', 'E11.4', 'E8.1', 'E24.16']
  real(real64) :: value
  integer :: ios, f
  character(len=40) :: field
  do
    read (*, '(z16)', iostat=ios) value
    if (ios /= 0) exit
    do f = 1, size(formats)
      write (field, '(a,'//trim(formats(f))//',a)') '[', value, ']'
      write (*, '(z16.16,1x,a,1x,a)') value, trim(formats(f)), trim(field)
    end do
  end do
end program
