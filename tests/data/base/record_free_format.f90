! Records what list-directed reading makes of awkward texts. Each line of free_format_cases.txt is one text; "|" in it stands
! for a line end. Three values of each kind (D real64, S real32, I int32) are read from a file that holds the text and
! behind it the line "NEXT"; they hold -7 before. One line a kind: kind, status (0 good, -1 end, 1 bad text), three values
! as bits, and the first 20 characters of the line at which the file stands after a good read.
!   gfortran record_free_format.f90 -o /tmp/record && /tmp/record <free_format_cases.txt >free_format_recorded.txt
program recordFreeFormat
  use iso_fortran_env
  implicit none
  character(len=400) :: text
  integer :: ios
  do
    read (*, '(a)', iostat=ios) text
    if (ios /= 0) exit
    call record('D', .true.)
    call record('S', .true.)
    call record('I', .true.)
    call record('E', .false.)
  end do
contains
  subroutine record(kind, withNext)
    character, intent(in) :: kind
    logical, intent(in) :: withNext
    real(real64) :: d(3)
    real(real32) :: s(3)
    integer(int32) :: i(3)
    character(len=20) :: next
    integer :: first, bar, last, status, ignored
    open (11, status='scratch', form='formatted')
    first = 1
    last = len_trim(text)
    do
      bar = index(text(first:last), '|')
      if (bar == 0) exit
      write (11, '(a)') text(first:first + bar - 2)
      first = first + bar
    end do
    write (11, '(a)') text(first:last)
    if (withNext) write (11, '(a)') 'NEXT'
    rewind (11)
    d = -7; s = -7; i = -7
    next = ''
    select case (kind)
    case ('D', 'E'); read (11, *, iostat=status) d
    case ('S'); read (11, *, iostat=status) s
    case ('I'); read (11, *, iostat=status) i
    end select
    status = max(-1, min(1, status))
    if (status == 0) read (11, '(a)', iostat=ignored) next
    select case (kind)
    case ('D', 'E'); write (*, '(a,i3,3z17.16,1x,a)') kind, status, d, trim(next)
    case ('S'); write (*, '(a,i3,3z17.8,1x,a)') kind, status, s, trim(next)
    case ('I'); write (*, '(a,i3,3z17.8,1x,a)') kind, status, i, trim(next)
    end select
    close (11)
  end subroutine
end program
