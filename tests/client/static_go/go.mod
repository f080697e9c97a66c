module lanes

go 1.19
