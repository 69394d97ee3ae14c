module example.invalid/lamp

go 1.19

require github.com/hashicorp/go-plugin v1.4.3
