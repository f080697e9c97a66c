module sums

go 1.19
